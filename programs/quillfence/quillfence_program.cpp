#include "quillfence_program.h"

namespace quillfence::programs {

static constexpr command_maker commands[] = {explain_command, test_command, collect_command,
                                             batch_command,   diff_command, log_command,
                                             policyd_command};

static constexpr char exit_status_help[] = R"(Exit status:
  0  done
  1  the answer is no, where a subcommand says so
  2  could not run
  3  undecided, or done in part)";

int run_quillfence(int argc, char **argv) {
    const program_frame frame = {
        .name = "quillfence",
        .description = "Asks the Quillfence spam engine what it decides about mail, and why.",
        .footer = exit_status_help,
        .commands = commands,
    };
    return run_program(frame, argc, argv);
}

} // namespace quillfence::programs
