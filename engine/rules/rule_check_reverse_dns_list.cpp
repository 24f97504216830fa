#include "reverse_dns.h"
#include "rules.h"

namespace quillfence {

uint8_t rule_check_reverse_dns_list(smtp_state *state) {
    // Kept on purpose: this rule alone spells its line for an empty answer so.
    return run_ptr_hook(__func__, &hook_table::spam_names, state, "DNS lookupo failure - skipping");
}

} // namespace quillfence
