#include "reverse_dns.h"
#include "rules.h"

namespace quillfence {

static constexpr char module_name[] = "rule_check_dynamic_reverse_dns";

uint8_t rule_check_dynamic_reverse_dns(smtp_state *state) {
    return run_ptr_hook(QF_HERE, &hook_table::dynamic_names, state);
}

} // namespace quillfence
