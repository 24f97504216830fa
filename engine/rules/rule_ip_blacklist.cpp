#include "list_rule.h"
#include "rules.h"

namespace quillfence {

static constexpr list_rule row = {
    .name = "rule_ip_blacklist",
    .value = &smtp_state::ip,
    .empty_line = "IP is empty or NULL-nothing to check",
    .slot = &hook_table::ip_blacklist,
};

uint8_t rule_ip_blacklist(smtp_state *state) {
    return run_list_rule(row, state);
}

} // namespace quillfence
