#include "platform/observer.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "platform/process.h"

namespace quillfence::platform {
namespace {

std::vector<std::string> seen;
size_t failing_call; // counted from 1; 0 for none

uint32_t record_and_fail(const char *call, const char *subject) {
    seen.push_back(std::string(call) + " " + subject);
    return seen.size() == failing_call ? error_io_device : error_none;
}

class observer : public ::testing::Test {
  protected:
    observer() {
        seen.clear();
        failing_call = 0;
    }
    ~observer() override {
        set_call_observer(nullptr);
    }
    testing::drive_c drive;
};

// Opens, reads and closes; the error of the first step that fails.
uint32_t read_file(const char *path) {
    file_handle file;
    if (const uint32_t error = file_open(path, {}, &file)) {
        return error;
    }
    char bytes[8];
    uint32_t moved;
    const uint32_t error = file_read(file, bytes, sizeof bytes, &moved);
    const uint32_t close_error = file_close(file); // closes also when it is made to fail
    return error ? error : close_error;
}

TEST_F(observer, without_one_every_call_goes_on) {
    EXPECT_EQ(observe_call("file_open", "c:/x"), error_none);
}

TEST_F(observer, is_asked_with_the_name_and_the_subject) {
    set_call_observer(record_and_fail);
    EXPECT_EQ(observe_call("file_open", "c:/x"), error_none);
    EXPECT_EQ(observe_call("file_close", nullptr), error_none);
    EXPECT_EQ(seen, (std::vector<std::string>{"file_open c:/x", "file_close "}));
}

TEST_F(observer, counts_the_calls_of_an_operation) {
    drive.write("c:/quillfence/a", "abc");
    set_call_observer(record_and_fail);
    EXPECT_EQ(read_file("c:/quillfence/a"), error_none);
    set_call_observer(nullptr);
    EXPECT_EQ(seen,
              (std::vector<std::string>{"file_open c:/quillfence/a", "file_read ", "file_close "}));
}

TEST_F(observer, makes_the_chosen_call_fail) {
    drive.write("c:/quillfence/a", "abc");
    for (failing_call = 1; failing_call <= 3; ++failing_call) {
        seen.clear();
        set_call_observer(record_and_fail);
        EXPECT_EQ(read_file("c:/quillfence/a"), error_io_device) << failing_call;
    }
    seen.clear();
    set_call_observer(record_and_fail);
    EXPECT_EQ(read_file("c:/quillfence/a"), error_none) << "the fourth call does not exist";
}

uint32_t halve(const char *, const char *) {
    return observed_half;
}

TEST_F(observer, halves_what_is_moved) {
    drive.write("c:/quillfence/a", "abcdefg");
    file_handle file;
    ASSERT_EQ(file_open("c:/quillfence/a", {.write = true}, &file), error_none);
    set_call_observer(halve);
    char bytes[7];
    uint32_t moved = 99;
    EXPECT_EQ(file_read(file, bytes, sizeof bytes, &moved), error_none);
    EXPECT_EQ(std::string(bytes, moved), "abc");
    EXPECT_EQ(file_write(file, "WXYZ", 4, &moved), error_none);
    EXPECT_EQ(moved, 2u);
    EXPECT_EQ(file_write(file, "!", 1, &moved), error_none);
    EXPECT_EQ(moved, 0u) << "half of one byte is none";
    EXPECT_EQ(file_seek(file, 0, seek_origin::begin, nullptr), error_none) << "goes on as it is";
    EXPECT_EQ(file_close(file), error_none);
    EXPECT_EQ(drive.read("c:/quillfence/a"), "abcWXfg");
}

TEST_F(observer, a_close_that_is_made_to_fail_closes) {
    drive.write("c:/quillfence/a", "abc");
    file_handle file;
    ASSERT_EQ(file_open("c:/quillfence/a", {.lock = true}, &file), error_none);
    failing_call = 1;
    set_call_observer(record_and_fail);
    EXPECT_EQ(file_close(file), error_io_device);
    set_call_observer(nullptr);
    ASSERT_EQ(file_open("c:/quillfence/a", {.write = true, .lock = true}, &file), error_none);
    EXPECT_EQ(file_close(file), error_none);
}

TEST_F(observer, is_gone_once_removed) {
    set_call_observer(record_and_fail);
    set_call_observer(nullptr);
    environment_has("QUILLFENCE_NO_SUCH_VARIABLE");
    EXPECT_TRUE(seen.empty());
}

} // namespace
} // namespace quillfence::platform
