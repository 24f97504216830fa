// How a subcommand is declared: a record that tells its name, its options and what it does. The
// library that takes command lines apart, CLI11, is known to command_line.cpp alone.
//
//   command list_find_command() {
//       auto to = std::make_shared<list_find_arguments>();
//       return {
//           .name = "find",
//           .description = "Show every entry that matches a value",
//           .options = {{"DIR", &to->directory, "The folder of the lists"},
//                       {"--max", &to->max, "How many at most", {.check = at_least(1)}}},
//           .run = [to] { return list_find(*to, std::cout); },
//       };
//   }
//
// Values are stored where the options point to; `run` owns that place, as it owns `to` here.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "program.h"

namespace quillfence::programs {

// What a flag calls. The record keeps std::variant from taking the function for something that is
// copied without memory: libstdc++ 12 then ends in a crash when there is none.
struct flag_call {
    std::function<void()> what;
};

// Where a value is stored, which tells what is taken as well: a flag, a text, a text that may be
// missing, a list of texts, a number. A flag may also call a function.
using option_target = std::variant<bool *, flag_call, std::string *, std::optional<std::string> *,
                                   std::vector<std::string> *, uint64_t *, double *>;

// What is wrong with a value, "" when nothing is. The complaint is "--option: what is wrong".
using value_check = std::function<std::string(const std::string &value)>;
value_check one_of(std::vector<std::string> choices);
value_check between(double least, double most); // NaN never is
value_check at_least(uint64_t least);
// Of the name of a file or folder, and whatever else would mean that the option was not given: an
// empty value is a mistake, as of a variable that is not set.
value_check not_empty();

struct option_details {
    std::string value = {};                 // how the help calls the value, as in FILE or yes|no
    std::optional<bool> required = {};      // else what has no dashes is, and nothing that has
    value_check check = {};                 // called for each value
    std::optional<std::string> alone = {};  // stored when the option stands without a value
    int values_at_once = 0;                 // of a list: exactly so many each time; 0: as many as
                                            // follow
    std::vector<std::string> excludes = {}; // options that can't be given as well
    std::vector<std::string> needs = {};    // options that must be given as well
};

struct option {
    std::string name; // "--json"; without dashes, as in "FILE", an argument known by its place
    option_target to;
    std::string description;
    option_details with = {};
};

// Options below a heading of their own.
struct option_group {
    std::string title;
    std::vector<option> options;
};

// Either `run` or `subcommands` is given, and one of these must be asked for.
struct command {
    std::string name;
    std::string description;
    std::vector<option> options = {};
    std::vector<option_group> groups = {};
    std::vector<command> subcommands = {};
    std::string footer = {}; // of the help; else that of what it is a subcommand of
    std::function<exit_status()> run = {};
};

// Understands the command line and runs the subcommand that it asks for, or prints help or version.
// Throws a failure, which names the help to read, when there is no understanding it.
exit_status run_command_line(const program_frame &frame, int argc, char **argv);

} // namespace quillfence::programs
