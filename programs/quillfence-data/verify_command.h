// quillfence-data verify.
#pragma once

#include <ostream>
#include <string>

#include "data_program.h"
#include "verify.h"

namespace quillfence::data_tool {

struct verify_arguments {
    std::string base;
    bool json = false;
};
// Writes every finding, in lines or as one JSON object, and on standard error what was looked at.
// exit_status::no when there are errors or warnings.
exit_status verify(const verify_arguments &arguments, std::ostream &out);

} // namespace quillfence::data_tool
