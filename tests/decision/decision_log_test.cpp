// The file of decisions: whole lines, whatever the disk does and however many write.
#include "decision_log.h"

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
        calls.fail("file_open", 1, platform::error_access_denied);
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

TEST_F(decision_log_test, the_next_process_ends_a_torn_line) {
    drive.write(path, "one\n{\"half");
    ASSERT_EQ(open_log.open(path), 0u);
    EXPECT_EQ(open_log.write("two\n"), 0u);
    EXPECT_EQ(drive.read(path), "one\n{\"half\ntwo\n");
}

} // namespace
} // namespace quillfence::testing
