#include "evidence.h"
#include "rules.h"
#include "vc_log.h"
#include "vc_rfc.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "rule_mail_from_strict_addr_parse";

// Writes the sender-format cache, which this rule and rule_rfc_mail_from read.
uint8_t rule_mail_from_strict_addr_parse(smtp_state *state) {
    if (!state) {
        QF_EINVAL();
        return 0;
    }
    if (state->rfc != sender_format_unknown) {
        tell(&evidence_sink::cache_answered, {"rfc", static_cast<uint32_t>(state->rfc)});
    }
    if (state->rfc == sender_format_invalid) {
        QF_REASON("cached value RFC format flagged as 'no'");
        return 1;
    }
    if (state->rfc == sender_format_valid) {
        QF_REASON("cached value RFC format flagged as 'yes'");
        return 0;
    }
    if (is_empty(state->mail_from)) {
        QF_REASON("from address detected as bounce");
        state->rfc = sender_format_valid;
        return 0;
    }
    if (!vc_valid_email_address(state->mail_from)) {
        QF_REASON("from address [%s] is not a valid address", state->mail_from);
        state->rfc = sender_format_invalid;
        return 1;
    }
    QF_REASON("from address [%s] is valid", state->mail_from);
    state->rfc = sender_format_valid;
    return 0;
}

} // namespace quillfence
