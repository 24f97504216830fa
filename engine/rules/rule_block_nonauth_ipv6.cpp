#include "evidence.h"
#include "rules.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "rule_block_nonauth_ipv6";

uint8_t rule_block_nonauth_ipv6(smtp_state *state) {
    if (!state) {
        QF_EINVAL();
        return 0;
    }
    if (is_empty(state->ip)) {
        QF_REASON("no IP address found. Can't run test");
        return 0;
    }
    if (!state->ipv6 || !is_empty(state->auth_user) || state->localhost) {
        return 0;
    }
    QF_REASON("non authentication ipv6 connection detected");
    return 1;
}

} // namespace quillfence
