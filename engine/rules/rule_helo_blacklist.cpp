#include "list_rule.h"
#include "rules.h"

namespace quillfence {

static constexpr char module_name[] = "rule_helo_blacklist";

static constexpr list_rule row = {
    .value = &smtp_state::helo,
    .empty_line = "HELO is empty or NULL-nothing to check",
    .slot = &hook_table::helo_blacklist,
};

uint8_t rule_helo_blacklist(smtp_state *state) {
    return run_list_rule(QF_HERE, row, state);
}

} // namespace quillfence
