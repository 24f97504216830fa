#include "reverse_dns.h"
#include "rules.h"

namespace quillfence {

static constexpr char module_name[] = "rule_check_confirmed_dyna";

uint8_t rule_check_confirmed_dyna(smtp_state *state) {
    return run_ptr_hook(QF_HERE, &hook_table::confirmed_names, state);
}

} // namespace quillfence
