// quillfence-data, the administrator's tool for the data files: its subcommands.
#pragma once

#include "program.h"

namespace quillfence::data_files {}

namespace quillfence::data_tool {

using namespace data_files;
using namespace programs;

// Each is defined in the file of its name.
void add_regex_commands(CLI::App &program, chosen_action &chosen);
void add_blockmap_commands(CLI::App &program, chosen_action &chosen);
void add_range_commands(CLI::App &program, chosen_action &chosen);
void add_list_commands(CLI::App &program, chosen_action &chosen);
void add_counter_commands(CLI::App &program, chosen_action &chosen);
void add_verify_command(CLI::App &program, chosen_action &chosen);

// Runs the program; the result is its exit status.
int run(int argc, char **argv);

} // namespace quillfence::data_tool
