#include "reverse_dns.h"
#include "rules.h"
#include "vc_dns.h"

namespace quillfence {

static constexpr char module_name[] = "rule_check_ip_reverse_dns";

static uint8_t judge_by_lookup(const char *rule, smtp_state *state) {
    const int code = look_up_ptr_names(state);
    if (is_ptr_failure(code)) {
        state->rdns_resolves = resolves_tempfail;
        QF_DEBUG_AS(rule, "%s", ptr_failure_line);
        return 0;
    }
    if (code == vc_dns_found) {
        QF_DEBUG_AS(rule, "DNS lookup success. setting cache");
        state->rdns_resolves = resolves_yes;
        return 0;
    }
    QF_DEBUG_AS(rule, "DNS NXDOMAIN. setting cache");
    state->rdns_resolves = resolves_no;
    return 1;
}

// Fires when the client's address has no PTR answer.
uint8_t rule_check_ip_reverse_dns(smtp_state *state) {
    if (!has_routable_client(QF_HERE, state)) {
        return 0;
    }
    switch (state->rdns_resolves) {
    case resolves_unknown:
        return judge_by_lookup(__func__, state);
    case resolves_yes:
        QF_DEBUG("cache shows PTR resolves");
        return 0;
    case resolves_tempfail:
        QF_DEBUG("cache shows PTR is temporarily unavailable");
        return 0;
    case resolves_no:
        QF_DEBUG("cache shows PTR is NXDOMAIN");
        return 1;
    default:
        return 0;
    }
}

} // namespace quillfence
