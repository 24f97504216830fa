#include "list_rule.h"

#include "evidence.h"
#include "vc_text.h"

namespace quillfence {

bool has_entry_to_check(const log_place &place, const list_rule &rule, const smtp_state *state) {
    if (!state) {
        QF_ERRNO_AT(place, EINVAL);
        return false;
    }
    if (!(hooks().*rule.slot)) {
        tell(&evidence_sink::found_empty_hook, {.rule = place.function});
    }
    const char *value = state->*rule.value;
    if (is_empty(value)) {
        QF_REASON_AT(place, "%s", rule.empty_line);
        return false;
    }
    QF_DEBUG_AT(place, "checking for entry [%s]", value);
    return true;
}

bool hook_lists(const list_rule &rule, smtp_state *state) {
    const session_hook hook = hooks().*rule.slot;
    return hook && hook(state);
}

uint8_t run_list_rule(const log_place &place, const list_rule &rule, smtp_state *state) {
    return has_entry_to_check(place, rule, state) && hook_lists(rule, state);
}

} // namespace quillfence
