// One record of a log, whole: as it was decided, and as it would be decided now.
#pragma once

#include <cstdint>
#include <string>

#include "configured_engine.h"
#include "decision_record.h"
#include "program.h"

namespace quillfence::programs {

// The newest record with an id, as far as a search has got.
struct found_record {
    std::string line;   // "" for none
    std::string place;  // "decisions.log:7"
    uint64_t count = 0; // of records with that id
};

struct log_explain_options {
    bool json = false;
    bool again = false;
    configuration_arguments configuration; // of again
};

// Prints it. done; no when again decides otherwise; partly when it can't be decided. Throws a
// failure.
exit_status explain_found(const found_record &found, const log_explain_options &options);

} // namespace quillfence::programs
