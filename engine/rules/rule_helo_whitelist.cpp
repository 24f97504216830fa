#include "list_rule.h"
#include "rules.h"

namespace quillfence {

static constexpr char module_name[] = "rule_helo_whitelist";

static constexpr list_rule row = {
    .value = &smtp_state::helo,
    .empty_line = "HELO is empty or NULL-nothing to check",
    .slot = &hook_table::helo_whitelist,
};

uint8_t rule_helo_whitelist(smtp_state *state) {
    return run_list_rule(QF_HERE, row, state);
}

} // namespace quillfence
