// quillfence-data, the administrator's tool for the data files: its subcommands.
#pragma once

#include "program.h"

namespace quillfence::data_files {}
namespace quillfence::verification {}

namespace quillfence::data_tool {

using namespace data_files;
using namespace programs;
using namespace verification;

// Each is defined in the file of its name.
command regex_command();
command blockmap_command();
command range_command();
command list_command();
command counter_command();
command verify_command();
command who_lists_command();

// Runs the program; the result is its exit status.
int run(int argc, char **argv);

} // namespace quillfence::data_tool
