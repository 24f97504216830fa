// quillfence-data, the administrator's tool for the binary data files: what its subcommands share.
//
// tools/ is compiled with exceptions and uses the standard library freely; nothing of it is linked
// into the product. A subcommand is declared in a function of its own file (an add_commands), which
// stands in the table in data_program.cpp. The declaration's callback does no work: it stores what
// shall be done in `chosen`, and that runs when the whole command line has been understood.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace quillfence::data_tool {

// How the program ends.
enum class exit_status : int {
    done = 0,
    no = 1,     // the answer to what was asked: not listed, no match, not in order
    failed = 2, // it could not run, or nothing was written
    partly = 3, // done, apart from what was complained about
};

// What a subcommand throws when it can't go on. The text names the file and what to do about it;
// the program prints it behind its name and ends with exit_status::failed.
class failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

using chosen_action = std::function<exit_status()>;
using add_commands = void (*)(CLI::App &program, chosen_action &chosen);

// One for each file that declares subcommands.
void add_regex_commands(CLI::App &program, chosen_action &chosen);
void add_blockmap_commands(CLI::App &program, chosen_action &chosen);
void add_range_commands(CLI::App &program, chosen_action &chosen);
void add_list_commands(CLI::App &program, chosen_action &chosen);
void add_counter_commands(CLI::App &program, chosen_action &chosen);
void add_verify_command(CLI::App &program, chosen_action &chosen);

// Complaints go to standard error, one line each. Bytes outside 0x20-0x7E are shown as '?'.
//   complain          "quillfence-data: text", about a run as a whole
//   complain_at       "file:line: error: text", or "warning" in its place
void complain(const std::string &text);
enum class weight { error, warning };
void complain_at(const std::string &file, uint64_t line, weight how, const std::string &text);

// "c:/a/b: No such file or directory", from a Win32 error number of the seam.
std::string file_error(const std::string &path, uint32_t error);

// "1 expression", "2 expressions"; the noun's plural when that takes more than an s.
std::string counted(uint64_t count, const std::string &noun, const std::string &plural = "");

// Calls a function for each argument; in the place of "-" for each line of standard input.
void for_each_argument(const std::vector<std::string> &arguments,
                       const std::function<void(const std::string &)> &function);

// The log function of the program: lines that the engine writes while nothing collects them.
int log_to_standard_error(int priority, const char *format, ...);

// Runs the program; the result is its exit status.
int run(int argc, char **argv);

} // namespace quillfence::data_tool
