// quillfence-data, its subcommands that only ask, and a configuration for them to look at, in which
// nothing is wrong.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../matching/range_bytes.h"
#include "data_program.h"
#include "drive_c.h"

namespace quillfence::testing {

using data_tool::exit_status;
using words = std::vector<std::string>;

struct ending {
    exit_status status;
    std::string out;
    std::string err;
};

// The program, run with these arguments behind its name; or what stands around it.
inline ending run_program(words arguments,
                          const std::function<int(int, char **)> &program = data_tool::run) {
    arguments.insert(arguments.begin(), "quillfence-data");
    std::vector<char *> argv;
    for (std::string &argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    const int status = program(static_cast<int>(arguments.size()), argv.data());
    return {exit_status{status}, ::testing::internal::GetCapturedStdout(),
            ::testing::internal::GetCapturedStderr()};
}

inline constexpr char root[] = "c:/quillfence";

inline std::string below(const std::string &name) {
    return std::string(root) + "/" + name;
}

class tool_test : public ::testing::Test {
  protected:
    tool_test() {
        drive.write(below("addresses"), "10.0.0.0/8\n11.1.2.3\n11.1.2.77\n");
        drive.write(below("patterns"), "^dyn[0-9]+\\.\n^pool-\n");
        drive.make_folder(below("bms"));
        drive.make_folder(below("dynaregex"));
        made({"blockmap", "build", below("addresses"), below("bms/a.bms")});
        made({"regex", "compile", below("patterns"), below("dynaregex/dyna.cregexes")});
        drive.remove(below("addresses"));
        drive.remove(below("patterns"));
        drive.write(below("control/enabled"), "1\n");
        drive.write(below("control/rules.enabled"), "valid_ptr\n");
        drive.write(below("control/bms.enabled"), "a.bms\n");
        drive.write(below("control/valid_domain_ips"), "tied.example : 198.51.100.0/24\n");
        drive.write(below("rbl.enabled"), "rbl.example.org\n");
        drive.write(below("bms/lists_to_update"), "a.bms\n");
        drive.write(below("from_whitelist"), "*@friend.example\n\tall of them\n");
        drive.write(below("from_blacklist"), "*@foe.example\nb@foe.example.org\n");
        drive.write(below("blocked_ips"), "192.0.2.66\n");
        drive.write(below("exempt_ips.range"), header(2, 1) + record({10, 9, 0, 0}, {10, 9, 0, 9}));
        drive.write(below("blocked_ips.range"), header(2, 2) +
                                                    record({10, 1, 2, 4}, {10, 1, 2, 9}, "lab") +
                                                    record({10, 1, 3, 0}, {10, 1, 3, 255}));
        drive.write(below("log/.counterv2.dat.11"),
                    "\x02" + std::string(4, '\0') + little_endian(1698796800) + little_endian(12) +
                        std::string(997 - 13, '\0'));
        const std::string last = little_endian(1698796800 + 7200);
        drive.write(below("log/.counterv2.dat.hourly"), "\x02" + last + std::string(64, '\0') +
                                                            last + little_endian(5) +
                                                            std::string(773 - 5 - 64 - 8, '\0'));
    }

    static void made(const words &arguments) {
        const ending run = run_program(arguments);
        EXPECT_EQ(run.status, exit_status::done) << run.err;
    }

    drive_c drive;
};

struct question {
    const char *name;
    words arguments;
    exit_status answer;
    bool may_be_missing = false; // a file that is not there is fine, and changes the answer
};

inline std::vector<question> questions() {
    return {
        {"list find, an address", {"list", "find", root, "b@foe.example"}, exit_status::done, true},
        {"list find, nothing", {"list", "find", root, "b@none.example"}, exit_status::no},
        {"list find, a client", {"list", "find", root, "10.1.2.5"}, exit_status::done, true},
        {"list find, no client", {"list", "find", root, "10.1.4.5"}, exit_status::no},
        {"range list", {"range", "list", below("blocked_ips.range")}, exit_status::done},
        {"range list --json",
         {"range", "list", "--json", below("blocked_ips.range")},
         exit_status::done},
        {"blockmap dump", {"blockmap", "dump", below("bms/a.bms")}, exit_status::done},
        {"blockmap test",
         {"blockmap", "test", below("bms/a.bms"), "10.1.1.1", "11.1.2.77"},
         exit_status::done},
        {"blockmap test, not listed",
         {"blockmap", "test", below("bms/a.bms"), "11.1.2.4", "12.1.1.1"},
         exit_status::no},
        {"regex dump", {"regex", "dump", below("dynaregex/dyna.cregexes")}, exit_status::done},
        {"regex test",
         {"regex", "test", "--all", below("dynaregex/dyna.cregexes"), "pool-1"},
         exit_status::done},
        {"counter show", {"counter", "show", below("log")}, exit_status::done, true},
        {"counter show --json",
         {"counter", "show", "--json", below("log")},
         exit_status::done,
         true},
        {"counter show --csv", {"counter", "show", "--csv", below("log")}, exit_status::done, true},
    };
}

} // namespace quillfence::testing
