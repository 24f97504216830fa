#include "evidence.h"
#include "reverse_dns.h"
#include "rules.h"

namespace quillfence {

static constexpr char module_name[] = "rule_check_ip_reverse_dns";

static uint8_t judge_by_lookup(const char *rule, smtp_state *state) {
    const int code = look_up_ptr_names(state);
    switch (cache_ptr_answer(state, code, &ptr_cache_row::check_ip_reverse_dns)) {
    case ptr_answer::failed:
        QF_REASON_AS(rule, "%s", ptr_failure_line);
        return 0;
    case ptr_answer::no_such_name:
        QF_REASON_AS(rule, "DNS NXDOMAIN. setting cache");
        return 1;
    default:
        QF_REASON_AS(rule, "DNS lookup success. setting cache");
        return 0;
    }
}

// Fires when the client's address has no PTR answer.
uint8_t rule_check_ip_reverse_dns(smtp_state *state) {
    if (!has_routable_client(QF_HERE, state)) {
        return 0;
    }
    tell_ptr_cache(state);
    switch (state->rdns_resolves) {
    case resolves_unknown:
        return judge_by_lookup(__func__, state);
    case resolves_yes:
        QF_REASON("cache shows PTR resolves");
        return 0;
    case resolves_tempfail:
        QF_REASON("cache shows PTR is temporarily unavailable");
        return 0;
    case resolves_no:
        QF_REASON("cache shows PTR is NXDOMAIN");
        return 1;
    default:
        return 0;
    }
}

} // namespace quillfence
