// Starting and stopping the engine: the hook table and the rule table of the process. Both are
// written during start-up only; checks may run side by side between start-up and teardown.
#pragma once

#include "configuration.h"
#include "vc_list.h"

namespace quillfence {

// Fills the hook table with the engine's own hooks and builds the rule table. 1, or 0 when there
// are no rules. A second call replaces the first one's table.
// ERROR lines: ENOMEM, "no rules loaded.. engine cannot be initialized".
int quillfence_init();

// Releases the rule table; the hook table stays.
void quillfence_teardown();

// The rule table, borrowed; null before start-up and after teardown.
vc_list_entry *quillfence_rules();

// 1 when the control file "enabled" begins with the number 1 ("1", "01", "1\n"), else 0: also when
// it is missing or can't be read. ERROR line: ENOMEM, and those of the file layer.
int quillfence_enabled();

} // namespace quillfence
