// What a subcommand's function writes, returns and throws.
#pragma once

#include <sstream>
#include <string>

#include "data_program.h"

namespace quillfence::testing {

struct outcome {
    data_tool::exit_status status;
    std::string out;
    std::string failure; // the text that was thrown
};

// Runs function(arguments, out).
template <class Function, class Arguments>
outcome outcome_of(Function function, const Arguments &arguments) {
    std::ostringstream out;
    programs::set_program_name("quillfence-data");
    try {
        const data_tool::exit_status status = function(arguments, out);
        return {status, out.str(), ""};
    } catch (const data_tool::failure &thrown) {
        return {data_tool::exit_status::failed, out.str(), thrown.what()};
    }
}

} // namespace quillfence::testing
