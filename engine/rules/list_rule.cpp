#include "list_rule.h"

#include "evidence.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

bool has_entry_to_check(const list_rule &rule, const smtp_state *state) {
    const char *module_name = rule.name;
    if (!state) {
        QF_ERRNO_AS(rule.name, EINVAL);
        return false;
    }
    if (!(hooks().*rule.slot)) {
        tell(&evidence_sink::found_empty_hook, {.rule = rule.name});
    }
    const char *value = state->*rule.value;
    if (is_empty(value)) {
        QF_REASON_AS(rule.name, "%s", rule.empty_line);
        return false;
    }
    QF_DEBUG_AS(rule.name, "checking for entry [%s]", value);
    return true;
}

bool hook_lists(const list_rule &rule, smtp_state *state) {
    const session_hook hook = hooks().*rule.slot;
    return hook && hook(state);
}

uint8_t run_list_rule(const list_rule &rule, smtp_state *state) {
    return has_entry_to_check(rule, state) && hook_lists(rule, state);
}

} // namespace quillfence
