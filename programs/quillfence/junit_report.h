// A test run as JUnit XML, which build servers read: one suite, a testcase a case, with a failure
// for what is not as expected and an error for what could not be run.
#pragma once

#include <string>
#include <vector>

#include "case_result.h"

namespace quillfence::programs {

// time is when the run began, "2026-11-22T04:51:13Z". The document is XML 1.0 in UTF-8, whatever
// the texts hold.
std::string junit_report(const std::vector<case_result> &results, const std::string &time);

} // namespace quillfence::programs
