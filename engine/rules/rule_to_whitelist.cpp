#include "list_rule.h"
#include "rules.h"

namespace quillfence {

static constexpr char module_name[] = "rule_to_whitelist";

static constexpr list_rule row = {
    .value = &smtp_state::rcpt_to,
    .empty_line = "RCPT TO is empty or NULL-nothing to check",
    .slot = &hook_table::recipient_whitelist,
};

uint8_t rule_to_whitelist(smtp_state *state) {
    return run_list_rule(QF_HERE, row, state);
}

} // namespace quillfence
