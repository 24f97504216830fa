#include "evidence.h"
#include "rules.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "rule_block_mail_from_self";

uint8_t rule_block_mail_from_self(smtp_state *state) {
    if (!state) {
        QF_EINVAL();
        return 0;
    }
    if (!state->mail_from || !state->rcpt_to) {
        QF_REASON("NULL parameters found - skipping");
        return 0;
    }
    if (_stricmp(state->mail_from, state->rcpt_to) != 0) {
        QF_REASON("from [%s] and to [%s] addresses no match", state->mail_from, state->rcpt_to);
        return 0;
    }
    QF_REASON("from [%s] and to [%s] addresses match", state->mail_from, state->rcpt_to);
    return 1;
}

} // namespace quillfence
