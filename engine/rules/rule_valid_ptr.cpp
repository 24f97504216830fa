#include "reverse_dns.h"
#include "rules.h"
#include "vc_dns.h"
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
static bool look_up_names(const log_place &rule, smtp_state *state) {
    const int code = look_up_ptr_names(state);
    if (is_ptr_failure(code) || (code == vc_dns_found && !has_ptr_names(state))) {
        QF_DEBUG_AS(rule.function, "%s", ptr_failure_line);
        return false;
    }
    if (code == vc_dns_found) {
        QF_DEBUG_AS(rule.function, "DNS lookup success. setting cache");
        state->rdns_resolves = resolves_yes;
    }
    return true;
}

static bool can_be_judged(const log_place &rule, smtp_state *state) {
    if (!has_routable_client(rule, state)) {
        return false;
    }
    switch (state->rdns_resolves) {
    case resolves_no:
        QF_DEBUG_AS(rule.function, "cache shows PTR is NXDOMAIN");
        return false;
    case resolves_tempfail:
        QF_DEBUG_AS(rule.function, "cache shows PTR is temporarily unavailable");
        return false;
    case resolves_unknown:
        return look_up_names(rule, state);
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
            state->rdns = *name;
            return 0;
        }
    }
    return 1;
}

} // namespace quillfence
