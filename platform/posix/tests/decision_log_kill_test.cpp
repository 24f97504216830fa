// A log whose writer is killed at each of its system calls in turn, one that meets a limit, and one
// that several write.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <iterator>
#include <string>
#include <thread>

#include <sys/resource.h>
#include <unistd.h>

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

// --- a torn line is cut off ---------------------------------------------------------------------

constexpr char torn[] = R"({"schema":"quillfence.decision/1","id":"7","time":"20)";

TEST_F(decision_log_kill, while_it_cuts_a_torn_line_off) {
    bool killed = true;
    int uncut = 0;
    int cut = 0;
    for (unsigned n = 1; killed && n < 200; ++n) {
        SCOPED_TRACE("killed at call " + std::to_string(n));
        drive.write(path, std::string("one\n") + torn);
        killed = killed_at(n, "log", [] { decision_log().open(path); });
        const std::string left = drive.read(path);
        ++(left == "one\n" ? cut : uncut);
        EXPECT_TRUE(left == "one\n" || left == std::string("one\n") + torn) << left;
        decision_log next;
        ASSERT_EQ(next.open(path), 0u);
        EXPECT_EQ(next.write("next\n"), 0u);
        EXPECT_EQ(drive.read(path), "one\nnext\n");
    }
    EXPECT_FALSE(killed);
    EXPECT_GT(uncut, 5);
    EXPECT_GT(cut, 2);
}

// Another one comes at any moment: what it was told to be in the log is there, whole.
TEST_F(decision_log_kill, another_log_is_opened_meanwhile) {
    bool paused = true;
    int refused = 0;
    for (unsigned n = 1; paused && n < 200; ++n) {
        SCOPED_TRACE("call " + std::to_string(n));
        drive.write(path, std::string("one\n") + torn);
        std::string written;
        paused = paused_at(
            n,
            [] {
                decision_log opened;
                opened.open(path);
                opened.write("theirs\n");
            },
            [&] {
                decision_log opened;
                if (opened.open(path)) {
                    ++refused; // nothing is written while somebody cuts
                } else if (!opened.write("ours\n")) {
                    written = "ours\n";
                }
            });
        const std::string text = drive.read(path);
        const auto has_line = [&text](const std::string &line) {
            return ("\n" + text).find("\n" + line) != std::string::npos;
        };
        EXPECT_TRUE(has_line("one\n") && has_line(written) && has_line("theirs\n")) << text;
    }
    EXPECT_FALSE(paused);
    EXPECT_GT(refused, 2);
}

// An older one that holds no lock is none of these; one that is alive does, and so nothing is cut.
TEST_F(decision_log_kill, a_living_writer_keeps_its_unfinished_line) {
    drive.write(path, "");
    const child_process writer([] {
        decision_log opened;
        opened.open(path);
        opened.write(torn); // without its end: the rest is on its way
        pause();
    });
    const auto soon = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (drive.read(path) != torn && std::chrono::steady_clock::now() < soon) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    decision_log opened;
    EXPECT_EQ(opened.open(path), 0u);
    EXPECT_EQ(opened.cut(), 0u);
    EXPECT_EQ(drive.read(path), torn);
}

// --- a limit, and several writers ---------------------------------------------------------------

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
