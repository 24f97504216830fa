// quillfence: asks the engine why. Its subcommands.
#pragma once

#include "program.h"

namespace quillfence::programs {

// Each is defined in the file of its name, explain_command.cpp for one.
command explain_command();
command batch_command();
command collect_command();
command diff_command();
command log_command();
command policyd_command();
command test_command();

// Runs the program; the result is its exit status.
int run_quillfence(int argc, char **argv);

} // namespace quillfence::programs
