// What can be looked at only where the event log is a file and the C library has functions of the
// same names.
#include "vc_w32.h"

#include <cstdio>
#include <ctime>

#include "drive_c.h"
#include "heap_text.h"
#include "platform/process.h"

namespace quillfence::testing {
namespace {

class syslog_events : public drive_test {
  protected:
    syslog_events() {
        platform::environment_set("QUILLFENCE_EVENT_LOG", "c:/events");
        openlog("quillfence-replayer", 1, 16);
    }
    ~syslog_events() override {
        closelog();
        platform::environment_set("QUILLFENCE_EVENT_LOG", nullptr);
    }
};

TEST_F(syslog_events, type_ident_and_text) {
    syslog(2, "two");
    syslog(3, "%s:%d ERROR %s(): %s", "vc_file", 12, "vc_open_ex", "failed");
    syslog(4, "four");
    syslog(5, "five");
    syslog(6, "six");
    syslog(7, "seven");
    syslog(9, "nine");
    EXPECT_EQ(drive.read("c:/events"),
              "error quillfence-replayer: two\n"
              "error quillfence-replayer: vc_file:12 ERROR vc_open_ex(): failed\n"
              "warning quillfence-replayer: four\n"
              "success quillfence-replayer: five\n"
              "success quillfence-replayer: six\n"
              "success quillfence-replayer: seven\n"
              "warning quillfence-replayer: nine\n");
}

TEST_F(syslog_events, text_is_cut_at_1023_characters) {
    const std::string longest(1023, 'x');
    syslog(4, "%s", longest.c_str());
    syslog(4, "%sy", longest.c_str());
    const std::string line = "warning quillfence-replayer: " + longest + "\n";
    EXPECT_EQ(drive.read("c:/events"), line + line);
}

TEST_F(syslog_events, emitters_write_through_it_when_installed) {
    vc_set_log_function(syslog);
    vc_log_error("f", "m", 1, "%s", "tab\there");
    vc_log_info("plain");
    EXPECT_EQ(drive.read("c:/events"), "error quillfence-replayer: m:1 ERROR f(): tab?here\n"
                                       "success quillfence-replayer: plain\n");
}

TEST_F(syslog_events, ident_is_a_copy) {
    char ident[] = "first";
    openlog(ident, 0, 0);
    ident[0] = 'X';
    syslog(3, "x");
    EXPECT_EQ(drive.read("c:/events"), "error first: x\n");
}

// The C library's functions keep their own behaviour beside ours.

class vc_w32_neighbours : public logged_test {};

TEST_F(vc_w32_neighbours, asprintf_of_the_c_library_does_not_cut) {
    const std::string longer(2000, 'x');
    text_slot theirs, ours;
    EXPECT_EQ(::asprintf(theirs.slot(), "%s", longer.c_str()), 2000);
    EXPECT_EQ(quillfence::asprintf(ours.slot(), "%s", longer.c_str()), -1);
    EXPECT_EQ(theirs.str(), longer);
}

TEST_F(vc_w32_neighbours, localtime_r_of_the_c_library_writes_no_line) {
    const time_t too_far = INT64_MAX;
    tm fields = {};
    EXPECT_EQ(::localtime_r(&too_far, &fields), nullptr);
    EXPECT_EQ(log.transcript(), lines{});
}

} // namespace
} // namespace quillfence::testing
