// quillfence-data where Linux itself refuses: files that open but can't be read, files that may not
// grow, a terminal.
#include <csignal>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "data_program.h"
#include "drive_c.h"
#include "progress.h"
#include "skip.h"
#include "vc_log.h"

namespace quillfence::data_tool {
namespace {

constexpr char out[] = "c:/quillfence/out";

class data_tool : public ::testing::Test {
  protected:
    // The exit status; standard error goes to said.
    int run_program(std::vector<std::string> words) {
        words.insert(words.begin(), "quillfence-data");
        std::vector<char *> argv;
        for (std::string &word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        ::testing::internal::CaptureStderr();
        const int status = run(static_cast<int>(words.size()), argv.data());
        said = ::testing::internal::GetCapturedStderr();
        return status;
    }
    // The same while no file may grow beyond so many bytes; what is said must fit, too.
    int run_limited(rlim_t size, const std::vector<std::string> &words) {
        rlimit before = {};
        getrlimit(RLIMIT_FSIZE, &before);
        const rlimit lower = {size, before.rlim_max};
        const sighandler_t signal_before = signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &lower);
        const int status = run_program(words);
        setrlimit(RLIMIT_FSIZE, &before);
        signal(SIGXFSZ, signal_before);
        return status;
    }
    // Memory at address 0 is nobody's: such a file opens, and the first read fails.
    void make_unreadable(const std::string &path) {
        drive.write(path, "");
        drive.remove(path);
        ASSERT_EQ(symlink("/proc/self/mem", drive.native(path).c_str()), 0);
    }
    void expect_old_file() {
        EXPECT_EQ(drive.read(out), "old");
        EXPECT_FALSE(drive.exists(out + std::string(".tmp")));
    }
    testing::drive_c drive;
    std::string said;
};

TEST_F(data_tool, a_pattern_file_that_can_not_be_read) {
    make_unreadable("c:/quillfence/dynaregex/dyna.cregexes");
    EXPECT_EQ(run_program({"regex", "dump", "c:/quillfence/dynaregex/dyna.cregexes"}), 2);
    EXPECT_EQ(said, "quillfence-data: c:/quillfence/dynaregex/dyna.cregexes: failed to read header "
                    "bit: Input/output error\n");
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(run_program({"verify", "c:/quillfence"}), 1);
    EXPECT_NE(::testing::internal::GetCapturedStdout().find(
                  "c:/quillfence/dynaregex/dyna.cregexes: error: can't be read\n"),
              std::string::npos);
}

TEST_F(data_tool, lists_that_can_not_be_read) {
    make_unreadable("c:/quillfence/list");
    for (const char *command : {"regex", "blockmap"}) {
        const char *const verb = command == std::string("regex") ? "compile" : "build";
        EXPECT_EQ(run_program({command, verb, "c:/quillfence/list", out}), 2);
        EXPECT_EQ(said, "quillfence-data: c:/quillfence/list: Input/output error\n");
        EXPECT_FALSE(drive.exists(out));
    }
}

TEST_F(data_tool, a_folder_is_no_list) {
    drive.make_folder("c:/quillfence/list");
    EXPECT_EQ(run_program({"blockmap", "build", "c:/quillfence/list", out}), 2);
    EXPECT_EQ(said, "quillfence-data: c:/quillfence/list: is a folder\n");
}

// Shown at once, by the stream's next piece, or when all is brought to the disk.
TEST_F(data_tool, an_output_that_may_not_grow) {
    std::string patterns;
    for (int i = 0; i < 1000; ++i) {
        patterns += "^host-" + std::to_string(i) + "\\.pool\\.example$\n";
    }
    drive.write("c:/quillfence/patterns", patterns);
    drive.write("c:/quillfence/pattern", "a\n");
    drive.write("c:/quillfence/addresses", "10.1.2.3\n11.1.2.3\n");
    drive.write(out, "old");
    const std::string wrong = "quillfence-data: c:/quillfence/out: could not be written: ";
    EXPECT_EQ(run_limited(200, {"regex", "compile", "c:/quillfence/patterns", out}), 2);
    EXPECT_EQ(said, wrong + "File too large\n");
    expect_old_file();
    EXPECT_EQ(run_limited(100, {"blockmap", "build", "c:/quillfence/addresses", out}), 2);
    EXPECT_EQ(said, wrong + "File too large\n");
    expect_old_file();
    EXPECT_EQ(run_limited(79, {"regex", "compile", "c:/quillfence/pattern", out}), 2);
    EXPECT_EQ(said, (wrong + "File too large\n").substr(0, 79));
    expect_old_file();
}

// A stream tells of a full disk with the first byte that its buffer has no room for. Here that is
// one of an expression's length.
TEST_F(data_tool, an_expression_that_can_not_be_stored) {
    constexpr size_t buffer_size = 4096;
    const auto compile = [&](size_t letters, int count, rlim_t limit) {
        std::string list;
        for (int i = 0; i < count; ++i) {
            list += "^" + std::string(letters, 'a') + "\n";
        }
        drive.write("c:/quillfence/patterns", list);
        ::testing::internal::CaptureStdout();
        const int status = run_limited(limit, {"regex", "compile", "c:/quillfence/patterns", out});
        ::testing::internal::GetCapturedStdout();
        return status;
    };
    size_t letters = 0;
    std::string made;
    while (made.size() < buffer_size && ++letters < 100) { // 31 of eight nodes of 16 bytes
        EXPECT_EQ(compile(letters, 31, 1 << 20), 0);
        made = drive.read(out);
    }
    ASSERT_EQ(made.size(), buffer_size);
    struct stat facts = {};
    if (stat(drive.native(out).c_str(), &facts) != 0 || facts.st_blksize != buffer_size) {
        QF_SKIP("streams have another buffer here");
    }
    drive.write(out, "old");
    EXPECT_EQ(compile(letters, 32, 500), 2);
    EXPECT_EQ(said, "quillfence-data: c:/quillfence/out: could not be written: Error writing node "
                    "block size: File too large\n");
    expect_old_file();
}

// What the engine logs while no subcommand listens is a complaint like any other.
TEST_F(data_tool, lines_of_the_engine_go_to_standard_error) {
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(run_program({"--version"}), 0);
    ::testing::internal::GetCapturedStdout();
    ::testing::internal::CaptureStderr();
    vc_log_error("function", "module", 7, "%s", "a\ttext");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "quillfence-data: module:7 ERROR function(): a?text\n");
    vc_set_log_function(nullptr);
}

TEST_F(data_tool, a_bar_is_drawn_anew_when_it_looks_otherwise) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0) {
        QF_SKIP("no terminals here");
    }
    const int shown = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(shown, 0);
    const int before = dup(STDERR_FILENO);
    dup2(shown, STDERR_FILENO);
    {
        progress bar("a", 1000);
        bar.show(500);
        bar.show(501);
        bar.show(502);
        bar.show(2000);
    }
    fflush(stderr);
    dup2(before, STDERR_FILENO);
    close(before);
    close(shown);
    std::string drawn;
    char piece[1000];
    for (ssize_t size; (size = read(terminal, piece, sizeof piece)) > 0;) { // up to the hang-up
        drawn.append(piece, static_cast<size_t>(size));
    }
    close(terminal);
    const std::string half = std::string(20, '#') + std::string(20, '.');
    EXPECT_EQ(drawn, "\ra [" + half + "]  50%\ra [" + std::string(40, '#') + "] 100%\r" +
                         std::string(49, ' ') + "\r");
}

// A list's name is found in a folder of this system as the engine finds it below its drive.
TEST_F(data_tool, a_list_is_edited_that_the_engine_reads) {
    const std::string folder = drive.native("c:/quillfence");
    drive.write("c:/quillfence/from_blacklist", "a@example.org\n");
    EXPECT_EQ(run_program({"list", "add", folder, "FROM_BLACKLIST", "b@example.org"}), 0) << said;
    EXPECT_EQ(drive.read("c:/quillfence/from_blacklist"), "a@example.org\nb@example.org\n");
    EXPECT_EQ(run_program({"list", "del", folder, "From_Blacklist", "a@example.org"}), 0) << said;
    EXPECT_EQ(drive.read("c:/quillfence/from_blacklist"), "b@example.org\n");
    EXPECT_EQ(run_program({"list", "add", folder, "EXEMPT_IPS", "192.0.2.1"}), 0) << said;
    EXPECT_EQ(access((folder + "/exempt_ips").c_str(), F_OK), 0);
    EXPECT_NE(access((folder + "/FROM_BLACKLIST").c_str(), F_OK), 0);
    EXPECT_NE(access((folder + "/EXEMPT_IPS").c_str(), F_OK), 0);
}

TEST_F(data_tool, a_list_in_other_letters_is_edited_when_it_is_the_only_one) {
    const std::string folder = drive.native("c:/quillfence");
    drive.write("c:/quillfence/FROM_BLACKLIST", "a@example.org\n");
    drive.write("c:/quillfence/from_BLACKLIST", "");
    EXPECT_EQ(run_program({"list", "add", folder, "from_blacklist", "b@example.org"}), 0) << said;
    EXPECT_EQ(run_program({"list", "del", folder, "from_blacklist", "a@example.org"}), 0) << said;
    EXPECT_EQ(drive.read("c:/quillfence/FROM_BLACKLIST"), "b@example.org\n");
    EXPECT_EQ(drive.read("c:/quillfence/from_BLACKLIST"), "");
    EXPECT_NE(access((folder + "/from_blacklist").c_str(), F_OK), 0);
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(run_program({"list", "find", folder, "b@example.org"}), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              folder + "/FROM_BLACKLIST:1: b@example.org (plain)\n");
    drive.write("c:/quillfence/Control/Rules.enabled", "");
    EXPECT_EQ(run_program({"list", "add", folder, "control/rules.enabled", "valid_ptr"}), 0);
    EXPECT_EQ(drive.read("c:/quillfence/Control/Rules.enabled"), "valid_ptr\n");
}

TEST_F(data_tool, opposite_lists_in_other_letters_exclude_each_other) {
    const std::string folder = drive.native("c:/quillfence");
    drive.write("c:/quillfence/From_Whitelist", "# friends\r\n  A@example.org\r\n");
    EXPECT_EQ(run_program({"list", "add", folder, "from_blacklist", "a@EXAMPLE.org"}), 2);
    EXPECT_EQ(said, "quillfence-data: " + folder +
                        "/from_blacklist: a@EXAMPLE.org: Entry is present in the opposite "
                        "table\n");
    drive.write("c:/lines", "b@example.org\na@example.org\n");
    const std::string lines = drive.native("c:/lines");
    EXPECT_EQ(run_program({"list", "add", "--from", lines, folder, "from_blacklist"}), 2);
    EXPECT_EQ(said.substr(0, said.find('\n')),
              lines + ":2: error: \"a@example.org\" is in the opposite list, from_whitelist");
    EXPECT_NE(access((folder + "/from_blacklist").c_str(), F_OK), 0);
    EXPECT_EQ(run_program({"list", "add", folder, "from_blacklist", "b@example.org"}), 0) << said;
    EXPECT_EQ(run_program({"list", "add", folder, "from_whitelist", "b@example.org"}), 2);
}

TEST_F(data_tool, verify_reads_a_list_in_other_letters) {
    drive.write("c:/quillfence/Exempt_IPs", "nobody\n");
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(run_program({"verify", drive.native("c:/quillfence")}), 1);
    const std::string told = ::testing::internal::GetCapturedStdout();
    EXPECT_NE(told.find("/exempt_ips:1: error: \"nobody\" never matches: no IP address\n"),
              std::string::npos)
        << told;
}

TEST_F(data_tool, verify_tells_names_that_differ_in_letter_case) {
    drive.write("c:/quillfence/bms/lists_to_update", "");
    drive.write("c:/quillfence/From_Whitelist", "a@example.org\n");
    drive.write("c:/quillfence/from_whitelist", "a@example.org\n");
    ::testing::internal::CaptureStdout();
    run_program({"verify", "c:/quillfence"});
    EXPECT_NE(::testing::internal::GetCapturedStdout().find(
                  "c:/quillfence/From_Whitelist: warning: is not read: from_whitelist is there as "
                  "well, and differs in letter case alone\n"),
              std::string::npos);
    ::testing::internal::CaptureStdout();
    run_program({"verify", "--json", "c:/quillfence"});
    EXPECT_NE(::testing::internal::GetCapturedStdout().find(
                  "{\"id\":\"name-in-other-letters\",\"severity\":\"warning\","
                  "\"path\":\"From_Whitelist\""),
              std::string::npos);
}

} // namespace
} // namespace quillfence::data_tool
