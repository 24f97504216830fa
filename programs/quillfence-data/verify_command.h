// quillfence-data verify.
#pragma once

#include <ostream>
#include <string>

#include "data_program.h"
#include "verify.h"

namespace quillfence::data_tool {

struct verify_arguments {
    std::string base;
    std::string format = "text";      // text, json, sarif, github
    std::string error_on = "warning"; // the least severity that is no: error, warning, info
};
// Writes every finding in the format, and on standard error what was looked at.
// exit_status::no when there is a finding of that severity or of a worse one.
exit_status verify(const verify_arguments &arguments, std::ostream &out);

} // namespace quillfence::data_tool
