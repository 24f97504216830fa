#include "list_rule.h"
#include "me_sender_whitelist.h"
#include "rules.h"

namespace quillfence {

static constexpr char module_name[] = "rule_from_whitelist";

static constexpr list_rule row = {
    .value = &smtp_state::mail_from,
    .empty_line = "MAIL FROM is empty or NULL-nothing to check",
    .slot = &hook_table::sender_whitelist,
};

// The local list first, the mail server's own second: either exempts the sender.
uint8_t rule_from_whitelist(smtp_state *state) {
    return has_entry_to_check(QF_HERE, row, state) &&
           (hook_lists(row, state) ||
            is_mailenable_sender_whitelist(state->mail_from, state->rcpt_to));
}

} // namespace quillfence
