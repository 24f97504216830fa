#include "evidence.h"
#include "rules.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "rule_require_helo";

uint8_t rule_require_helo(smtp_state *state) {
    if (!state) {
        QF_EINVAL();
        return 0;
    }
    if (is_empty(state->helo)) {
        QF_REASON("HELO is NULL or empty");
        return 1;
    }
    QF_REASON("HELO [%s] exists!", state->helo);
    return 0;
}

} // namespace quillfence
