#include "data_program.h"

namespace quillfence::data_tool {

static constexpr command_maker commands[] = {
    regex_command,   blockmap_command, range_command,     list_command,
    counter_command, verify_command,   who_lists_command,
};

static constexpr char exit_status_help[] = R"(Exit status:
  0  done
  1  the answer is no: not listed, no match
  2  could not run, or nothing was written
  3  done in part: the rest has been complained about)";

int run(int argc, char **argv) {
    const program_frame frame = {
        .name = "quillfence-data",
        .description = "Makes, shows and asks the binary data files of Quillfence.",
        .footer = exit_status_help,
        .commands = commands,
    };
    return run_program(frame, argc, argv);
}

} // namespace quillfence::data_tool
