// What the rules that look one value of the session up in a list have in common. Log lines come
// from the rule's place, QF_HERE.
#pragma once

#include <cstdint>

#include "hook_table.h"
#include "smtp_state.h"
#include "vc_log.h"

namespace quillfence {

struct list_rule {
    char *smtp_state::*value;       // the text that is looked up
    const char *empty_line;         // DEBUG line for a missing or empty value
    session_hook hook_table::*slot; // where the lookup is
};

// Whether there is something to look up; then the DEBUG line "checking for entry [%s]" is written.
// A null session gives an ERROR line (EINVAL), a missing or empty value the rule's DEBUG line.
bool has_entry_to_check(const log_place &place, const list_rule &rule, const smtp_state *state);

// Whether the rule's hook lists the session's value; an empty slot lists nothing.
bool hook_lists(const list_rule &rule, smtp_state *state);

// The whole of a rule that asks nothing but its hook: 1 when the value is listed, else 0.
uint8_t run_list_rule(const log_place &place, const list_rule &rule, smtp_state *state);

} // namespace quillfence
