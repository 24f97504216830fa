#include <cstring>

#include "evidence.h"
#include "hook_table.h"
#include "rule_support.h"
#include "rules.h"
#include "vc_dns.h"
#include "vc_log.h"
#include "vc_rfc.h"

namespace quillfence {

static constexpr char module_name[] = "rule_valid_from_domain";

// Asks for the domain and keeps a final answer; a lookup failure is not kept, so a later check
// asks again.
static uint8_t ask_for_domain(smtp_state *state, const char *domain) {
    static constexpr char operation[] = "rule_valid_from_domain";
    switch (vc_has_a_or_mx(domain, hooks().dns_option)) {
    case vc_dns_no_name:
        QF_REASON_AS(operation, "address [%s] returns NXDOMAIN - setting flag", state->mail_from);
        state->mail_resolves = resolves_no;
        return 1;
    case vc_dns_found:
        QF_REASON_AS(operation, "address [%s] resolves - setting flag", state->mail_from);
        state->mail_resolves = resolves_yes;
        return 0;
    default:
        tell_reason("the look-up of %s failed", domain);
        return 0;
    }
}

// Fires when the sender's domain is missing, no valid domain, or does not exist.
uint8_t rule_valid_from_domain(smtp_state *state) {
    if (!state || !state->mail_from) {
        QF_EINVAL();
        return 0;
    }
    if (state->mail_resolves == resolves_yes || state->mail_resolves == resolves_no) {
        tell(&evidence_sink::cache_answered, {"mail_resolves", state->mail_resolves});
        return state->mail_resolves == resolves_no;
    }
    trim_session_text(&state->mail_from);
    const char *const at_sign = strchr(state->mail_from, '@');
    if (!at_sign) {
        QF_REASON("address [%s] does not contain '@' symbol", state->mail_from);
        return 1;
    }
    const char *const domain = at_sign + 1;
    if (vc_is_ip(domain)) {
        state->mail_resolves = resolves_yes;
        return 0;
    }
    if (!vc_valid_domain(domain)) {
        QF_REASON("domain [%s] flagged as invalid", domain);
        return 1;
    }
    return ask_for_domain(state, domain);
}

} // namespace quillfence
