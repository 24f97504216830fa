// Tries a pattern on names as a client's DNS server might give them, since a pattern that looks
// innocent can take all the steps that a message has: [0-9]+[0-9]+[0-9]+x does with a name of
// digits.
#pragma once

#include <string>

#include "step_budget.h"
#include "tiny_rex.h"

namespace quillfence::data_tool {

// A hundredth of what a run has for all its names and patterns.
inline constexpr uint32_t trial_steps = run_steps / 100;

// The first of a few names of 255 characters with which the pattern takes more than trial_steps;
// empty when there is none. The names are digits, letters and labels, with the pattern's own end
// and with one that comes close.
std::string name_that_takes_long(TRex *expression);

} // namespace quillfence::data_tool
