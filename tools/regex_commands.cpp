#include <CLI/CLI.hpp>

#include "data_program.h"

namespace quillfence::data_tool {

void add_regex_commands(CLI::App &, chosen_action &) {}

} // namespace quillfence::data_tool
