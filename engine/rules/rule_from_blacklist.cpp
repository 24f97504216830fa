#include "list_rule.h"
#include "rules.h"

namespace quillfence {

static constexpr char module_name[] = "rule_from_blacklist";

static constexpr list_rule row = {
    .value = &smtp_state::mail_from,
    .empty_line = "MAIL FROM is empty or NULL-nothing to check",
    .slot = &hook_table::sender_blacklist,
};

uint8_t rule_from_blacklist(smtp_state *state) {
    return run_list_rule(QF_HERE, row, state);
}

} // namespace quillfence
