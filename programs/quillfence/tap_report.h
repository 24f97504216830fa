// A test run as TAP, the Test Anything Protocol, version 13: a plan, a line a case, and behind the
// line of one that failed a block of YAML with all that is known. Texts of a case can't make a line
// of their own or a directive ("# TODO").
#pragma once

#include <string>

#include "case_result.h"

namespace quillfence::programs {

// Each text ends in a line feed.
std::string tap_plan(size_t cases);
std::string tap_case(size_t number, const case_result &result); // number from 1
// What is about to be written into the expectation of a case, as comments.
std::string tap_update(const case_result &result);
std::string tap_end(const case_counts &counts);

} // namespace quillfence::programs
