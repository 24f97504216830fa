#include "evidence.h"
#include "reverse_dns.h"
#include "rules.h"
#include "vc_rfc.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "rule_valid_ptr";

static bool is_usable(const char *name) {
    return *name && vc_valid_domain(name) && _stricmp(name, "localhost.localdomain");
}

// Whether the names can be judged after this rule's own lookup.
// Kept on purpose: a failure or a missing name is not cached here, and a missing name goes on to
// the test of the (empty) list and so fires, while the cache's "no such name" does not.
static bool look_up_names(const char *rule, smtp_state *state) {
    const int code = look_up_ptr_names(state);
    switch (cache_ptr_answer(state, code, &ptr_cache_row::valid_ptr)) {
    case ptr_answer::names:
        QF_REASON_AS(rule, "DNS lookup success. setting cache");
        return true;
    case ptr_answer::no_such_name:
        return true;
    default:
        QF_REASON_AS(rule, "%s", ptr_failure_line);
        return false;
    }
}

static bool can_be_judged(const log_place &place, smtp_state *state) {
    if (!has_routable_client(place, state)) {
        return false;
    }
    tell_ptr_cache(state);
    switch (state->rdns_resolves) {
    case resolves_no:
        QF_REASON_AS(place.function, "cache shows PTR is NXDOMAIN");
        return false;
    case resolves_tempfail:
        QF_REASON_AS(place.function, "cache shows PTR is temporarily unavailable");
        return false;
    case resolves_unknown:
        return look_up_names(place.function, state);
    default:
        return true;
    }
}

// Fires when no PTR name is a usable domain; otherwise the first usable one is shown.
uint8_t rule_valid_ptr(smtp_state *state) {
    if (!can_be_judged(QF_HERE, state)) {
        return 0;
    }
    for (char **name = state->ptr_results; name && *name; ++name) {
        if (is_usable(*name)) {
            tell_reason("the PTR name %s is a valid domain", *name);
            state->rdns = *name;
            return 0;
        }
    }
    return 1;
}

} // namespace quillfence
