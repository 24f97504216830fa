// Events as lines of the file that QUILLFENCE_EVENT_LOG names.
#include "platform/event_log.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "platform/error_numbers.h"
#include "platform/observer.h"
#include "platform/process.h"

namespace quillfence::platform {
namespace {

constexpr uint32_t event_id = 0x40020100;
constexpr char log_path[] = "c:/quillfence/events";
int writes_to_refuse;

class event_log_file : public ::testing::Test {
  protected:
    ~event_log_file() override {
        environment_set("QUILLFENCE_EVENT_LOG", nullptr);
    }
    // Opens, reports one event and closes.
    static void report(event_type type, const char *ident, const char *message) {
        platform::event_log *const log = event_log_open("Quillfence");
        ASSERT_NE(log, nullptr);
        event_log_report(log, type, event_id, ident, message);
        event_log_close(log);
    }
    testing::drive_c drive;
};

TEST_F(event_log_file, one_line_an_event) {
    environment_set("QUILLFENCE_EVENT_LOG", log_path);
    platform::event_log *const log = event_log_open("Quillfence");
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(drive.read(log_path), "") << "created at once";
    event_log_report(log, event_type::error, event_id, "quillfence-replayer", "first");
    event_log_report(log, event_type::warning, event_id, "quillfence-replayer", "");
    event_log_report(log, event_type::success, event_id, "other", "100 %s %n \xe4");
    event_log_report(log, static_cast<event_type>(9), event_id, "other", "odd type");
    event_log_close(log);
    EXPECT_EQ(drive.read(log_path), "error quillfence-replayer: first\n"
                                    "warning quillfence-replayer: \n"
                                    "success other: 100 %s %n \xe4\n"
                                    "success other: odd type\n");
}

TEST_F(event_log_file, lines_are_appended) {
    drive.write(log_path, "before\n");
    environment_set("QUILLFENCE_EVENT_LOG", drive.native(log_path).c_str());
    report(event_type::error, "a", "one");
    report(event_type::error, "a", "two");
    EXPECT_EQ(drive.read(log_path), "before\nerror a: one\nerror a: two\n");
}

TEST_F(event_log_file, a_message_stays_on_its_line) {
    environment_set("QUILLFENCE_EVENT_LOG", log_path);
    report(event_type::error, "a", "one\ntwo\r\nthree\n");
    EXPECT_EQ(drive.read(log_path), "error a: one two  three \n");
}

TEST_F(event_log_file, a_long_message_is_cut) {
    environment_set("QUILLFENCE_EVENT_LOG", log_path);
    report(event_type::error, "a", std::string(1023, 'x').c_str());
    EXPECT_EQ(drive.read(log_path), "error a: " + std::string(1023, 'x') + "\n");
    drive.remove(log_path);
    report(event_type::error, "a", std::string(100000, 'x').c_str());
    EXPECT_EQ(drive.read(log_path), "error a: " + std::string(4094 - 9, 'x') + "\n");
}

TEST_F(event_log_file, a_dash_is_standard_error) {
    environment_set("QUILLFENCE_EVENT_LOG", "-");
    ::testing::internal::CaptureStderr();
    report(event_type::warning, "a", "seen");
    report(event_type::error, "a", "still open");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "warning a: seen\nerror a: still open\n");
}

TEST_F(event_log_file, what_cannot_be_opened_is_standard_error) {
    static constexpr struct {
        const char *path, *why;
    } cases[] = {{"c:/quillfence/missing/events", "No such file or directory"},
                 {"c:/quillfence", "Permission denied"}};
    for (const auto &c : cases) {
        environment_set("QUILLFENCE_EVENT_LOG", c.path);
        ::testing::internal::CaptureStderr();
        report(event_type::warning, "a", "seen");
        EXPECT_EQ(::testing::internal::GetCapturedStderr(),
                  std::string("error Quillfence: QUILLFENCE_EVENT_LOG can't be opened (") + c.why +
                      "): " + c.path + "\nwarning a: seen\n");
    }
}

TEST_F(event_log_file, what_the_file_does_not_take_is_standard_error) {
    environment_set("QUILLFENCE_EVENT_LOG", log_path);
    writes_to_refuse = 1;
    set_call_observer([](const char *call, const char *) -> uint32_t {
        return strcmp(call, "file_write") == 0 && writes_to_refuse-- > 0 ? error_disk_full
                                                                         : error_none;
    });
    ::testing::internal::CaptureStderr();
    report(event_type::warning, "a", "seen");
    set_call_observer(nullptr);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "warning a: seen\n");
    EXPECT_EQ(drive.read(log_path), "");
    report(event_type::warning, "a", "taken again");
    EXPECT_EQ(drive.read(log_path), "warning a: taken again\n");
}

TEST_F(event_log_file, its_name_has_any_letter_case) {
    drive.write("c:/quillfence/Events", "");
    environment_set("QUILLFENCE_EVENT_LOG", log_path);
    report(event_type::error, "a", "one");
    EXPECT_EQ(drive.read("c:/quillfence/Events"), "error a: one\n");
}

TEST_F(event_log_file, an_empty_variable_means_the_log_of_the_system) {
    environment_set("QUILLFENCE_EVENT_LOG", "");
    platform::event_log *const log = event_log_open("Quillfence");
    EXPECT_NE(log, nullptr);
    event_log_close(log);
}

TEST_F(event_log_file, two_logs_at_once) {
    environment_set("QUILLFENCE_EVENT_LOG", log_path);
    platform::event_log *const one = event_log_open("Quillfence");
    platform::event_log *const other = event_log_open("Quillfence");
    event_log_report(one, event_type::error, event_id, "one", "a");
    event_log_report(other, event_type::error, event_id, "other", "b");
    event_log_report(one, event_type::error, event_id, "one", "c");
    event_log_close(one);
    event_log_close(other);
    EXPECT_EQ(drive.read(log_path), "error one: a\nerror other: b\nerror one: c\n");
}

} // namespace
} // namespace quillfence::platform
