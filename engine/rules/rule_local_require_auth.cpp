#include "evidence.h"
#include "is_local_domain.h"
#include "rules.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "rule_local_require_auth";

uint8_t rule_local_require_auth(smtp_state *state) {
    if (!state) {
        QF_EINVAL();
        return 0;
    }
    if (is_empty(state->mail_from)) {
        // It is the sender that is missing: the wording is kept on purpose.
        QF_DEBUG("Nothing to check as the ip address is NULL or empty");
        tell_reason("the sender is empty: nothing to check");
        return 0;
    }
    QF_DEBUG("checking for entry [%s]", state->mail_from);
    if (!is_local_domain(state->mail_from)) {
        QF_REASON("Nothing to check when sender is not local");
        return 0;
    }
    if (!is_empty(state->auth_user)) {
        QF_REASON("Sender domain is local and SMTP session is authenticated");
        return 0;
    }
    return 1;
}

} // namespace quillfence
