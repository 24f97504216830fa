#include "evidence.h"
#include "rules.h"
#include "vc_log.h"
#include "vc_rfc.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "rule_require_full_addr";

uint8_t rule_require_full_addr(smtp_state *state) {
    if (!state) {
        QF_EINVAL();
        return 0;
    }
    if (is_empty(state->rcpt_to)) {
        QF_REASON("NULL or empty recipient address");
        return 1;
    }
    if (!vc_valid_email_address(state->rcpt_to)) {
        QF_REASON("Recipient address [%s] is invalid", state->rcpt_to);
        return 1;
    }
    return 0;
}

} // namespace quillfence
