#include "list_rule.h"
#include "me_ip_whitelist.h"
#include "rules.h"

namespace quillfence {

static constexpr char module_name[] = "rule_ip_whitelist";

static constexpr list_rule row = {
    .value = &smtp_state::ip,
    .empty_line = "IP is empty or NULL-nothing to check",
    .slot = &hook_table::ip_whitelist,
};

// The local list first, the mail server's own second: either exempts the client.
uint8_t rule_ip_whitelist(smtp_state *state) {
    return has_entry_to_check(QF_HERE, row, state) &&
           (hook_lists(row, state) || is_mailenable_ip_whitelist(state->ip));
}

} // namespace quillfence
