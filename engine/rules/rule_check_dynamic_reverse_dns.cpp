#include "reverse_dns.h"
#include "rules.h"

namespace quillfence {

uint8_t rule_check_dynamic_reverse_dns(smtp_state *state) {
    return run_ptr_hook(__func__, &hook_table::dynamic_names, state);
}

} // namespace quillfence
