// A log whose writer is killed at each of its system calls in turn, one that meets a limit, and one
// that several write.
#include <algorithm>
#include <csignal>
#include <iterator>
#include <string>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include "crash.h"
#include "decision_log.h"
#include "drive_c.h"
#include "side_by_side.h"

namespace quillfence::testing {
namespace {

using decision::decision_log;

constexpr char path[] = "c:/quillfence/decisions";

using decision_log_kill = drive_test;

TEST_F(decision_log_kill, what_was_written_is_whole_and_stays) {
    const std::string line(3000, 'x');
    bool killed = true;
    bool some = false;
    for (unsigned n = 1; killed && n < 200; ++n) {
        SCOPED_TRACE("killed at call " + std::to_string(n));
        drive.remove(path);
        killed = killed_at(n, "log", [&line] {
            decision_log written;
            written.open(path);
            for (int i = 0; i < 3; ++i) {
                written.write(line + "\n");
            }
        });
        const std::string before = drive.exists(path) ? drive.read(path) : "";
        ASSERT_EQ(before.size() % (line.size() + 1), 0u) << "a torn line";
        some |= !before.empty() && killed;
        decision_log next;
        ASSERT_EQ(next.open(path), 0u);
        EXPECT_EQ(next.write("next\n"), 0u);
        EXPECT_EQ(drive.read(path), before + "next\n");
    }
    EXPECT_FALSE(killed);
    EXPECT_TRUE(some);
}

// While one lives, files grow to so many bytes.
class file_limit {
  public:
    explicit file_limit(rlim_t limit) : signal_before_(signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit lower = {limit, before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &lower), 0);
    }
    ~file_limit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        signal(SIGXFSZ, signal_before_);
    }
    file_limit(const file_limit &) = delete;
    file_limit &operator=(const file_limit &) = delete;

  private:
    const sighandler_t signal_before_;
    rlimit before_ = {};
};

TEST_F(decision_log_kill, a_limit_cuts_one_line_and_the_next_is_whole) {
    decision_log log_file;
    ASSERT_EQ(log_file.open(path), 0u);
    const std::string line = std::string(999, 'x') + "\n";
    {
        const file_limit limit(2500);
        EXPECT_EQ(log_file.write(line), 0u);
        EXPECT_EQ(log_file.write(line), 0u);
        EXPECT_NE(log_file.write(line), 0u);
        EXPECT_NE(log_file.write(line), 0u);
    }
    EXPECT_EQ(log_file.write(line), 0u);
    EXPECT_EQ(drive.read(path), line + line + std::string(500, 'x') + "\n" + line);
}

// Wine does not append as Windows does, so that this is for Linux, where the service runs.
TEST_F(decision_log_kill, two_logs_and_several_threads_on_one_file) {
    constexpr size_t each = 200;
    const auto line_of = [](char letter, size_t size) {
        return std::string(size - 1, letter) + "\n";
    };
    decision_log open_log;
    ASSERT_EQ(open_log.open(path), 0u);
    decision_log other;
    ASSERT_EQ(other.open(path), 0u);
    side_by_side(4, [&](unsigned number) {
        const std::string line = line_of(static_cast<char>('a' + number), 500 + 100 * number);
        for (size_t i = 0; i < each; ++i) {
            EXPECT_EQ((number % 2 ? open_log : other).write(line), 0u);
        }
    });
    const std::string text = drive.read(path);
    size_t counts[4] = {};
    size_t begin = 0;
    for (size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
        const std::string line = text.substr(begin, end + 1 - begin);
        const auto number = static_cast<unsigned>(line[0] - 'a');
        ASSERT_LT(number, 4u);
        EXPECT_EQ(line, line_of(line[0], 500 + 100 * number));
        ++counts[number];
    }
    EXPECT_EQ(begin, text.size());
    EXPECT_TRUE(std::all_of(std::begin(counts), std::end(counts),
                            [](size_t count) { return count == each; }));
}

} // namespace
} // namespace quillfence::testing
