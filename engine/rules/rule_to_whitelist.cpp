#include "list_rule.h"
#include "rules.h"

namespace quillfence {

static constexpr list_rule row = {
    .name = "rule_to_whitelist",
    .value = &smtp_state::rcpt_to,
    .empty_line = "RCPT TO is empty or NULL-nothing to check",
    .slot = &hook_table::recipient_whitelist,
};

uint8_t rule_to_whitelist(smtp_state *state) {
    return run_list_rule(row, state);
}

} // namespace quillfence
