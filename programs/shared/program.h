// What the programs share: how a run ends, what is said on the way, and the frame around a command
// line of subcommands.
//
// programs/ is compiled with exceptions and uses the standard library freely; nothing of it is
// linked into the engine. A subcommand is declared by a function of its own file that returns a
// command (command_line.h); what it does runs when the whole command line has been understood.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace quillfence::programs {

// How a program ends.
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

struct command;
using command_maker = command (*)();

struct program_frame {
    const char *name;
    const char *description;
    const char *footer; // of the help: what the exit statuses mean
    std::span<const command_maker> commands;
};

// Understands the command line, runs what it asks for and returns the exit status. Lines that the
// engine logs go to standard error behind the program's name.
int run_program(const program_frame &frame, int argc, char **argv);

// The name that complaints begin with, borrowed; run_program sets the frame's.
void set_program_name(const char *name);

// Complaints go to standard error, one line each. Bytes outside 0x20-0x7E are shown as '?'.
//   complain          "program: text", about a run as a whole
//   complain_at       "file:line: error: text", or "warning" in its place
void complain(const std::string &text);
enum class weight { error, warning };
void complain_at(const std::string &file, uint64_t line, weight how, const std::string &text);

// "c:/a/b: No such file or directory", from a Win32 error number of the seam. The system's word for
// a folder, a pipe or a device in a file's place is that a right is missing: that is told apart.
std::string file_error(const std::string &path, uint32_t error);
// The same without the path.
std::string file_problem(const std::string &path, uint32_t error);

// "1 expression", "2 expressions"; the noun's plural when that takes more than an s.
std::string counted(uint64_t count, const std::string &noun, const std::string &plural = "");

// Calls a function for each argument; in the place of "-" for each line of standard input.
void for_each_argument(const std::vector<std::string> &arguments,
                       const std::function<void(const std::string &)> &function);

// Throws a failure when the path is no folder, with what to do about it; or when the system does
// not say.
void require_directory(const std::string &path, const std::string &advice);

// The log function of the programs: lines that the engine writes while nothing collects them.
int log_to_standard_error(int priority, const char *format, ...);

} // namespace quillfence::programs
