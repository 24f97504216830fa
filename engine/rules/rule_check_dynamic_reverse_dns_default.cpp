#include "quillfence-spam-hooks.h"
#include "reverse_dns.h"
#include "rules.h"
#include "tiny_rex.h"

namespace quillfence {

static constexpr char module_name[] = "rule_check_dynamic_reverse_dns_default";

namespace {

// Four groups of digits: a name that spells the client's address out. The compiler puts ".*" in
// front, so the groups may stand anywhere in the name.
constexpr char embedded_address[] =
    R"([0-9]{1,3}(\-|_|\.)[0-9]{1,3}(\-|_|\.)[0-9]{1,3}(\-|_|\.)[0-9]{1,3})";

} // namespace

// Fires when every name matches and none is exempt; otherwise the name that broke this is shown.
uint8_t rule_check_dynamic_reverse_dns_default(smtp_state *state) {
    if (!reach_ptr_names(QF_HERE, state)) {
        return 0;
    }
    const trex_ptr expression(trex_compile_ex(embedded_address, trex_fold_case));
    if (!expression) {
        return 0;
    }
    for (char **name = state->ptr_results; *name; ++name) {
        if (!trex_match(expression.get(), *name) || is_exempt_ptr_name(*name)) {
            state->rdns = *name;
            return 0;
        }
    }
    return 1;
}

} // namespace quillfence
