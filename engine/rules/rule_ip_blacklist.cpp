#include "list_rule.h"
#include "rules.h"

namespace quillfence {

static constexpr char module_name[] = "rule_ip_blacklist";

static constexpr list_rule row = {
    .value = &smtp_state::ip,
    .empty_line = "IP is empty or NULL-nothing to check",
    .slot = &hook_table::ip_blacklist,
};

uint8_t rule_ip_blacklist(smtp_state *state) {
    return run_list_rule(QF_HERE, row, state);
}

} // namespace quillfence
