// The mail log and the counters of verdicts.
#pragma once

#include <cstdint>

#include "smtp_state.h"

namespace quillfence {

void log_message(smtp_state *state, const char *rule_name, uint8_t log_type);

} // namespace quillfence
