#include "rules.h"
#include "vc_log.h"

namespace quillfence {

static constexpr char module_name[] = "rule_block_all_mail";

// Fires for every session: whether it runs at all is a matter of enabling it.
uint8_t rule_block_all_mail(smtp_state *state) {
    if (!state) {
        QF_EINVAL();
        return 0;
    }
    return 1;
}

} // namespace quillfence
