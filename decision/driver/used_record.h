// A record that is used for another decision: empty like a new one, with the memory that it had.
#pragma once

#include "decision_record.h"

namespace quillfence::decision {

// Keeps the rules, emptied; all other lists have no elements.
void empty_record(decision_record *record);

} // namespace quillfence::decision
