#include "evidence.h"
#include "hook_table.h"
#include "rules.h"
#include "vc_dns.h"
#include "vc_log.h"

namespace quillfence {

static constexpr char module_name[] = "rule_resolve_helo_domain";

// Fires when the HELO is no valid domain or does not exist. A lookup failure is not kept, so a
// later check asks again.
uint8_t rule_resolve_helo_domain(smtp_state *state) {
    if (!state || !state->helo) {
        QF_EINVAL();
        return 0;
    }
    if (state->helo_resolves == resolves_yes || state->helo_resolves == resolves_no) {
        tell(&evidence_sink::cache_answered, {"helo_resolves", state->helo_resolves});
        return state->helo_resolves == resolves_no;
    }
    if (rule_valid_helo_domain(state)) { // may trim the HELO
        QF_REASON("HELO [%s] is not valid", state->helo);
        return 1;
    }
    switch (vc_has_a_or_mx(state->helo, hooks().dns_option)) {
    case vc_dns_no_name:
        QF_REASON("HELO [%s] returns NXDOMAIN - setting flag", state->helo);
        state->helo_resolves = resolves_no;
        return 1;
    case vc_dns_found:
        QF_REASON("HELO [%s] resolves - setting flag", state->helo);
        state->helo_resolves = resolves_yes;
        return 0;
    default:
        tell_reason("the look-up of %s failed", state->helo);
        return 0;
    }
}

} // namespace quillfence
