// The file of decisions: whole lines, whatever the disk does and however many write.
#include "decision_log.h"
#include "decision_record.h"

#include <cstring>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"
#include "platform/error_numbers.h"
#include "platform/file.h"

namespace quillfence::testing {
namespace {

using decision::decision_log;

constexpr char path[] = "c:/quillfence/decisions";

class decision_log_test : public drive_test {
  protected:
    // A line of so many bytes, its end included.
    static std::string line_of(char letter, size_t size = 2000) {
        return std::string(size - 1, letter) + "\n";
    }
    decision_log open_log;
};

TEST_F(decision_log_test, lines_are_appended_with_one_write_each) {
    drive.write(path, "before\n");
    ASSERT_EQ(open_log.open(path), 0u);
    call_watch calls;
    EXPECT_EQ(open_log.write("one\n"), 0u);
    EXPECT_EQ(open_log.write("two\n"), 0u);
    EXPECT_EQ(calls.take(), (lines{"file_write", "file_write"}));
    EXPECT_EQ(drive.read(path), "before\none\ntwo\n");
}

TEST_F(decision_log_test, what_is_made_is_its_owners_alone) {
    ASSERT_EQ(open_log.open(path), 0u);
    platform::file_handle file = platform::invalid_file;
    ASSERT_EQ(platform::file_open(path, {}, &file), 0u);
    bool is_private = false;
    EXPECT_EQ(platform::file_is_private(file, &is_private), 0u);
    EXPECT_TRUE(is_private);
    platform::file_close(file);
}

TEST_F(decision_log_test, what_can_not_be_opened_is_an_error) {
    EXPECT_EQ(open_log.open("c:/quillfence/no/such/log"), platform::error_path_not_found);
    EXPECT_NE(open_log.write("lost\n"), 0u);
    drive.make_folder("c:/quillfence/folder");
    decision_log other;
    EXPECT_EQ(other.open("c:/quillfence/folder"), platform::error_access_denied);
}

TEST_F(decision_log_test, a_rotated_log_begins_anew) {
    ASSERT_EQ(open_log.open(path), 0u);
    EXPECT_EQ(open_log.write("one\n"), 0u);
    drive.rename(path, std::string(path) + ".1");
    EXPECT_EQ(open_log.write("two\n"), 0u) << "nobody has said so yet";
    EXPECT_EQ(open_log.reopen(), 0u);
    EXPECT_EQ(open_log.write("three\n"), 0u);
    EXPECT_EQ(drive.read(std::string(path) + ".1"), "one\ntwo\n");
    EXPECT_EQ(drive.read(path), "three\n");
}

TEST_F(decision_log_test, what_can_not_be_reopened_stays_open) {
    ASSERT_EQ(open_log.open(path), 0u);
    {
        call_watch calls;
        calls.fail("file_open", 1, platform::error_access_denied, true);
        EXPECT_EQ(open_log.reopen(), platform::error_access_denied);
    }
    EXPECT_EQ(open_log.write("one\n"), 0u);
    EXPECT_EQ(drive.read(path), "one\n");
}

TEST_F(decision_log_test, a_full_disk_loses_one_line_and_spoils_none) {
    ASSERT_EQ(open_log.open(path), 0u);
    EXPECT_EQ(open_log.write(line_of('a')), 0u);
    {
        call_watch calls;
        calls.fail("file_write", 1, platform::observed_half);
        EXPECT_EQ(open_log.write(line_of('b')), platform::error_disk_full);
        calls.fail("file_write", 1, platform::error_disk_full);
        EXPECT_EQ(open_log.write(line_of('c')), platform::error_disk_full);
    }
    EXPECT_EQ(open_log.write(line_of('d')), 0u);
    EXPECT_EQ(open_log.write(line_of('e')), 0u);
    EXPECT_EQ(drive.read(path),
              line_of('a') + std::string(1000, 'b') + "\n" + line_of('d') + line_of('e'));
}

// Cut short while it ended what had been cut short.
TEST_F(decision_log_test, a_disk_that_is_full_again) {
    ASSERT_EQ(open_log.open(path), 0u);
    {
        call_watch calls;
        calls.fail("file_write", 1, platform::observed_half, true);
        EXPECT_NE(open_log.write("abcdefg\n"), 0u); // abcd
        EXPECT_NE(open_log.write("x\n"), 0u);       // the line end alone, of three bytes
        EXPECT_NE(open_log.write("ijklmno\n"), 0u); // ijkl
    }
    EXPECT_EQ(open_log.write("whole\n"), 0u);
    EXPECT_EQ(drive.read(path), "abcd\nijkl\nwhole\n");
}

// --- a torn line that was found -----------------------------------------------------------------

constexpr char beginning[] = R"({"schema":"quillfence.decision/)";
constexpr char torn[] = R"({"schema":"quillfence.decision/1","id":"7","time":"20)";

// What a log that begins with this text is when one more line has been written to it, and how many
// bytes were cut off.
struct mended {
    std::string text;
    uint64_t cut;
    bool operator==(const mended &) const = default;
    friend void PrintTo(const mended &one, std::ostream *out) {
        *out << one.cut << " bytes cut: " << one.text.substr(0, 200);
    }
};

mended after_opening(const drive_c &drive, const std::string &text) {
    drive.write(path, text);
    decision_log opened;
    EXPECT_EQ(opened.open(path), 0u);
    EXPECT_EQ(opened.write("next\n"), 0u);
    return {drive.read(path), opened.cut()};
}

TEST_F(decision_log_test, a_record_that_was_cut_short_is_cut_off) {
    for (const std::string before : {"", "one\n", "one\n\n"}) {
        for (size_t size = 1; size < sizeof torn; ++size) {
            EXPECT_EQ(after_opening(drive, before + std::string(torn, size)),
                      (mended{before + "next\n", size}));
        }
    }
}

// However the line lies among the pieces in which the end of a file is read.
TEST_F(decision_log_test, a_long_record_is_cut_off_whole) {
    constexpr size_t piece = 64 << 10;
    for (const size_t size : {piece - 1, piece, piece + 1, 2 * piece, 15 * piece}) {
        const std::string tail = torn + std::string(size - strlen(torn), 'x');
        EXPECT_EQ(after_opening(drive, tail), (mended{"next\n", size}));
        EXPECT_EQ(after_opening(drive, line_of('a') + tail),
                  (mended{line_of('a') + "next\n", size}));
    }
}

TEST_F(decision_log_test, what_else_has_no_line_end_stays_and_gets_one) {
    const std::string tails[] = {
        "somebody's last line",
        R"({"half)",
        R"({"schema":"quillfence.case/1","id")",
        R"( {"schema":"quillfence.decision/1")",
        R"({"schema":"quillfence.decision/1"})",           // nothing is missing
        torn + std::string(decision::longest_record, 'x'), // it is looked for no farther back
    };
    for (const std::string &tail : tails) {
        EXPECT_EQ(after_opening(drive, tail), (mended{tail + "\nnext\n", 0}));
        EXPECT_EQ(after_opening(drive, "one\n" + tail), (mended{"one\n" + tail + "\nnext\n", 0}));
    }
    EXPECT_EQ(after_opening(drive, beginning), (mended{"next\n", strlen(beginning)}));
}

// It may be in the midst of that record.
TEST_F(decision_log_test, nothing_is_cut_off_while_another_one_writes) {
    decision_log other;
    ASSERT_EQ(other.open(path), 0u);
    drive.write(path, torn);
    ASSERT_EQ(open_log.open(path), 0u);
    EXPECT_EQ(open_log.cut(), 0u);
    EXPECT_EQ(open_log.write("next\n"), 0u);
    EXPECT_EQ(open_log.reopen(), 0u);
    EXPECT_EQ(drive.read(path), std::string(torn) + "\nnext\n");
}

TEST_F(decision_log_test, a_log_that_is_opened_anew_is_mended_when_it_is_another_file) {
    ASSERT_EQ(open_log.open(path), 0u);
    drive.rename(path, std::string(path) + ".1");
    drive.write(path, std::string("one\n") + torn);
    EXPECT_EQ(open_log.reopen(), 0u);
    EXPECT_EQ(open_log.cut(), strlen(torn));
    EXPECT_EQ(open_log.reopen(), 0u);
    EXPECT_EQ(open_log.cut(), 0u);
    EXPECT_EQ(drive.read(path), "one\n");
}

// Whichever call fails: the log opens or does not, and no line is lost or runs into another.
TEST_F(decision_log_test, a_disk_that_fails_while_it_is_mended) {
    int failed = 1;
    for (int n = 1; failed; ++n) {
        SCOPED_TRACE("call " + std::to_string(n));
        drive.write(path, std::string("one\n") + torn);
        decision_log opened;
        uint32_t error = 0;
        {
            call_watch calls;
            calls.fail_any(n, platform::error_io_device);
            error = opened.open(path);
            failed = calls.failed();
        }
        if (!error) {
            EXPECT_EQ(opened.write("two\n"), 0u);
        }
        const std::string text = drive.read(path);
        const bool is_cut = text == (error ? "one\n" : "one\ntwo\n");
        const bool is_ended = text == std::string("one\n") + torn + (error ? "" : "\ntwo\n");
        EXPECT_TRUE(is_cut || is_ended) << text;
        EXPECT_TRUE(failed || is_cut);
    }
}

// Another one that cuts a torn line off is waited for, but not for ever.
TEST_F(decision_log_test, a_file_that_somebody_keeps_for_himself) {
    call_watch calls;
    calls.fail("file_open", 1, platform::error_sharing_violation);
    EXPECT_EQ(open_log.open(path), 0u);
    EXPECT_EQ(open_log.write("one\n"), 0u);
    calls.fail("file_open", 1, platform::error_sharing_violation, true);
    EXPECT_EQ(open_log.reopen(), platform::error_sharing_violation);
    EXPECT_EQ(open_log.write("two\n"), 0u);
    EXPECT_EQ(drive.read(path), "one\ntwo\n");
}

} // namespace
} // namespace quillfence::testing
