#include "list_rule.h"
#include "rules.h"

namespace quillfence {

static constexpr list_rule row = {
    .name = "rule_from_blacklist",
    .value = &smtp_state::mail_from,
    .empty_line = "MAIL FROM is empty or NULL-nothing to check",
    .slot = &hook_table::sender_blacklist,
};

uint8_t rule_from_blacklist(smtp_state *state) {
    return run_list_rule(row, state);
}

} // namespace quillfence
