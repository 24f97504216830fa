// One case of a test run: judged once more, and held against what it expects.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "case_input.h"
#include "case_result.h"
#include "replay.h"

namespace quillfence::programs {

struct check_options {
    std::string drive_c{};  // in place of this system's c:; "" for that. A bundle has its own
    std::string registry{}; // an export, likewise; a captured case has its own answers
    std::string user_dir{}; // for short cases that name none
    decision::case_dns dns = decision::case_dns::recorded;
    // Called when the file's expectation is about to be corrected; empty: it stays as it is.
    std::function<void(const case_result &)> update{};
};

// Runs the case. The engine must have been started, and logs to nobody. What it throws is about
// the program, not about the case.
case_result check_case(const std::string &path, const check_options &options);

} // namespace quillfence::programs
