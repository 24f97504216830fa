#include "evidence.h"
#include "quillfence-spam-hooks.h"
#include "reverse_dns.h"
#include "rules.h"
#include "step_budget.h"
#include "tiny_rex.h"
#include "vc_log.h"

namespace quillfence {

static constexpr char module_name[] = "rule_check_dynamic_reverse_dns_default";

// Four groups of digits: a name that spells the client's address out. The compiler puts ".*" in
// front, so the groups may stand anywhere in the name.
static constexpr char embedded_address[] =
    R"([0-9]{1,3}(\-|_|\.)[0-9]{1,3}(\-|_|\.)[0-9]{1,3}(\-|_|\.)[0-9]{1,3})";

static bool matches(TRex *expression, const char *name) {
    const bool matched = trex_match(expression, name);
    tell(&evidence_sink::searched_patterns, {.subject = name,
                                             .existed = true,
                                             .expressions = 1,
                                             .expression = matched,
                                             .pattern = embedded_address});
    return matched;
}

// Fires when every name matches and none is exempt; otherwise the name that broke this is shown.
// The bounds are those of the pattern-file hooks (quillfence-spam-hooks.h).
uint8_t rule_check_dynamic_reverse_dns_default(smtp_state *state) {
    if (!reach_ptr_names(QF_HERE, state)) {
        return 0;
    }
    if (has_too_many_ptr_names(state)) {
        QF_REASON("%s", too_many_ptr_names_line);
        return 0;
    }
    const trex_ptr expression(trex_compile_ex(embedded_address, trex_fold_case));
    if (!expression) {
        return 0;
    }
    for (char **name = state->ptr_results; *name; ++name) {
        const bool listed = matches(expression.get(), *name) && !is_exempt_ptr_name(*name);
        if (steps_are_spent()) {
            QF_ERROR("%s", ptr_steps_spent_line);
            tell_failure(exempt_regex_file, 0, ptr_steps_spent_line);
            return 0;
        }
        if (!listed) {
            state->rdns = *name;
            return 0;
        }
    }
    return 1;
}

} // namespace quillfence
