#include "vc_w32.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>

#include "drive_c.h"
#include "failing_memory.h"
#include "heap_text.h"
#include "log_capture.h"
#include "platform/clock.h"
#include "platform/complaint.h"
#include "platform/observer.h"
#include "platform/process.h"
#include "vc_log.h"

namespace quillfence::testing {
namespace {

// The same call through a pointer, so that the compiler does not judge a null format.
const auto log_error_unchecked = &vc_log_error;
const auto log_debug_unchecked = &vc_log_debug;
const auto log_info_unchecked = &vc_log_info;
const auto asprintf_unchecked = &quillfence::asprintf;
const auto syslog_unchecked = &quillfence::syslog;
const char *volatile no_text = nullptr;

// Emitters.

class vc_log : public logged_test {};
class vc_log_traced : public traced_test {};

TEST_F(vc_log, error_line_carries_location_and_message) {
    vc_log_error("do_work", "worker", 42, "%s is %d", "answer", 7);
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], (log_line{3, "worker", 42, "do_work", "answer is 7"}));
}

TEST_F(vc_log_traced, debug_line_carries_location_and_message) {
    vc_log_debug("do_work", "worker", 43, "%s", "step");
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], (log_line{7, "worker", 43, "do_work", "step"}));
}

TEST_F(vc_log, information_line_is_the_message_alone) {
    vc_log_info("%d hits", 3);
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], (log_line{6, "", 0, "", "3 hits"}));
}

TEST_F(vc_log, message_is_cut_at_255_characters) {
    const std::string longest(255, 'x');
    vc_log_error("f", "m", 1, "%s", longest.c_str());
    vc_log_error("f", "m", 1, "%sy", longest.c_str());
    vc_log_info("%sy", longest.c_str());
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 3u);
    for (const log_line &line : lines) {
        EXPECT_EQ(line.message, longest);
    }
}

TEST_F(vc_log, unprintable_bytes_of_the_message_become_question_marks) {
    vc_log_error("f", "m", 1, "%s", "a\tb\nc\x7F\x80\xFF\x1F ~");
    vc_log_info("%s", "tab\there");
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].message, "a?b?c???? ~");
    EXPECT_EQ(lines[1].message, "tab?here");
}

TEST_F(vc_log, location_is_not_sanitised) {
    vc_log_error("f\t", "m\n", 1, "x");
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].function, "f\t");
    EXPECT_EQ(lines[0].source, "m\n");
}

TEST_F(vc_log, missing_module_name_shows_as_null) {
    vc_log_error("f", nullptr, 1, "x");
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].source, "(null)");
}

TEST_F(vc_log_traced, nothing_without_function_name_or_format) {
    vc_log_error(nullptr, "m", 1, "x");
    log_error_unchecked("f", "m", 1, no_text);
    vc_log_debug(nullptr, "m", 1, "x");
    log_debug_unchecked("f", "m", 1, no_text);
    log_info_unchecked(no_text);
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(vc_log_traced, nothing_without_log_function) {
    // A format that does not fit its arguments would be noticed if it was evaluated.
    const char *const unreadable = reinterpret_cast<const char *>(1);
    vc_set_log_function(nullptr);
    vc_log_error("f", "m", 1, "%s", unreadable);
    vc_log_debug("f", "m", 1, "%s", unreadable);
    vc_log_info("%s", unreadable);
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(vc_log, debug_line_is_dropped_and_not_formatted_when_not_wanted) {
    vc_log_debug("f", "m", 1, "%s", reinterpret_cast<const char *>(1));
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(vc_log, verbosedebug_is_looked_up_once) {
    vc_log_debug("f", "m", 1, "before");
    platform::environment_set("VERBOSEDEBUG", "1");
    vc_log_debug("f", "m", 1, "still not");
    __vc_forget_verbosedebug();
    vc_log_debug("f", "m", 1, "now");
    platform::environment_set("VERBOSEDEBUG", nullptr);
    vc_log_debug("f", "m", 1, "still");
    EXPECT_EQ(log.debugs(), (lines{"f: now", "f: still"}));
}

TEST_F(vc_log, verbosedebug_may_be_empty) {
    platform::environment_set("VERBOSEDEBUG", "");
    vc_log_debug("f", "m", 1, "now");
    platform::environment_set("VERBOSEDEBUG", nullptr);
    EXPECT_EQ(log.debugs(), (lines{"f: now"}));
}

int debug_lines;
int count_debug_lines(int priority, const char *, ...) {
    debug_lines += priority == 7;
    return 0;
}

TEST_F(vc_log, verbosedebug_decision_is_taken_without_log_function_too) {
    vc_set_log_function(nullptr);
    platform::environment_set("VERBOSEDEBUG", "1");
    vc_log_debug("f", "m", 1, "first");
    platform::environment_set("VERBOSEDEBUG", nullptr);
    debug_lines = 0;
    vc_set_log_function(count_debug_lines);
    vc_log_debug("f", "m", 1, "second");
    EXPECT_EQ(debug_lines, 1);
}

// --- a thread's own listener ---

int own_lines;
int count_own_lines(int, const char *, ...) {
    ++own_lines;
    return 0;
}

TEST_F(vc_log, a_threads_listener_hears_its_lines_alone) {
    own_lines = 0;
    vc_log_listener own{count_own_lines};
    vc_set_thread_log_listener(&own);
    EXPECT_EQ(vc_thread_log_listener(), &own);
    vc_log_error("f", "m", 1, "mine");
    vc_log_info("mine");
    std::thread([] {
        EXPECT_EQ(vc_thread_log_listener(), nullptr);
        vc_log_error("f", "m", 1, "another's");
    }).join();
    platform::complain(platform::event_type::warning, "g", "the platform's");
    vc_set_thread_log_listener(nullptr);
    vc_log_error("f", "m", 1, "later");
    EXPECT_EQ(own_lines, 2);
    EXPECT_EQ(log.transcript(), (lines{"E f: another's", "W g: the platform's", "E f: later"}));
}

TEST_F(vc_log, a_threads_listener_hears_also_when_the_process_does_not) {
    own_lines = 0;
    vc_log_listener own{count_own_lines};
    vc_set_log_function(nullptr);
    vc_set_thread_log_listener(&own);
    vc_log_error("f", "m", 1, "heard");
    vc_set_thread_log_listener(nullptr);
    vc_log_error("f", "m", 1, "not heard");
    EXPECT_EQ(own_lines, 1);
    EXPECT_EQ(log.transcript(), lines{});
}

// What the platform complains of goes the same way, its text in full.

TEST_F(vc_log, complaints_of_the_platform) {
    const std::string path(300, 'x');
    platform::complain(platform::event_type::error, "f", "first %s\t", path.c_str());
    platform::complain(platform::event_type::error, "f", "first %s\t", path.c_str());
    platform::complain(platform::event_type::warning, "g", "second");
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], (log_line{3, "platform", 0, "f", "first " + path + "?"}));
    EXPECT_EQ(lines[1], (log_line{4, "platform", 0, "g", "second"}));
}

TEST_F(vc_log, complaints_without_a_log_function_are_kept_for_later) {
    vc_set_log_function(nullptr);
    platform::complain(platform::event_type::error, "f", "kept");
    {
        log_capture later;
        platform::complain(platform::event_type::error, "f", "kept");
        EXPECT_EQ(later.errors(), (lines{"f: kept"}));
    }
}

// Out of memory.

constexpr char module_name[] = "m";

int oom_calls;
int count_oom() {
    return ++oom_calls * 10;
}

class vc_oom : public logged_test {
  protected:
    vc_oom() {
        oom_calls = 0;
    }
    ~vc_oom() override {
        vc_set_oom_function(nullptr);
    }
    const std::string enomem = strerror(ENOMEM);
};

TEST_F(vc_oom, line_alone_without_function) {
    EXPECT_EQ(vc_log_oom("f", "m", 9), 0);
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], (log_line{3, "m", 9, "f", enomem}));
}

TEST_F(vc_oom, function_is_called_after_the_line_and_gives_the_result) {
    vc_set_oom_function(count_oom);
    EXPECT_EQ(vc_log_oom("f", "m", 9), 10);
    EXPECT_EQ(vc_log_oom("f", "m", 9), 20);
    EXPECT_EQ(log.errors(), (lines{"f: " + enomem, "f: " + enomem}));
}

TEST_F(vc_oom, function_is_called_without_a_log_function_too) {
    vc_set_oom_function(count_oom);
    vc_set_log_function(nullptr);
    EXPECT_EQ(vc_log_oom("f", "m", 9), 10);
    EXPECT_EQ(log.errors(), lines{});
}

TEST_F(vc_oom, calloc_gives_zeroed_memory) {
    auto *bytes = static_cast<unsigned char *>(vc_calloc("f", "m", 5, 3, 4));
    ASSERT_NE(bytes, nullptr);
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(bytes[i], 0) << i;
    }
    free(bytes);
}

TEST_F(vc_oom, calloc_reports_a_failure_under_the_callers_location) {
    vc_set_oom_function(count_oom);
    void *block;
    {
        failing_allocation failing(1);
        block = vc_calloc("f", "m", 5, 3, 4);
    }
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(oom_calls, 1);
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], (log_line{3, "m", 5, "f", enomem}));
}

TEST_F(vc_oom, every_line_of_that_text_calls_the_function) {
    vc_set_oom_function(count_oom);
    QF_ENOMEM();
    EXPECT_EQ(oom_calls, 1);
    QF_ERRNO(ENOMEM);
    EXPECT_EQ(oom_calls, 2);
    QF_ERRNO_AS("f", ENOMEM);
    EXPECT_EQ(oom_calls, 3);
    const log_place place = {"caller", "its module", 77};
    QF_ERRNO_AT(place, ENOMEM);
    EXPECT_EQ(oom_calls, 4);
    vc_set_log_function(nullptr);
    QF_ENOMEM();
    EXPECT_EQ(oom_calls, 5) << "also when nobody hears the line";
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 4u);
    for (const log_line &line : lines) {
        EXPECT_EQ(line.message, enomem);
    }
    EXPECT_EQ(lines[3], (log_line{3, "its module", 77, "caller", enomem}));
}

TEST_F(vc_oom, other_lines_do_not) {
    vc_set_oom_function(count_oom);
    QF_EINVAL();
    QF_ERRNO(ENOENT);
    QF_ERROR("%s", enomem.c_str()); // a text, whatever it says
    QF_DEBUG("%s", enomem.c_str());
    EXPECT_EQ(oom_calls, 0);
    EXPECT_EQ(log.errors().size(), 3u);
}

// Real paths of the library, one whose line is its own and one whose line is a helper's.
TEST_F(vc_oom, the_library_calls_it) {
    vc_set_oom_function(count_oom);
    char *text = nullptr;
    int length = 0;
    {
        failing_allocation failing(1);
        length = quillfence::asprintf(&text, "%d", 1);
    }
    EXPECT_EQ(length, -1);
    EXPECT_EQ(oom_calls, 1);
    EXPECT_EQ(log.errors(), lines{"asprintf: " + enomem});
}

// Console and sanitising.

TEST(vc_console_log, writes_the_line_to_standard_output) {
    ::testing::internal::CaptureStdout();
    const int result = vc_console_log(3, "%s:%d", "a\tb", 5);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "a\tb:5\n");
    EXPECT_GE(result, 0);
}

TEST(vc_console_log, cuts_the_line_at_255_characters) {
    const std::string text(300, 'x');
    ::testing::internal::CaptureStdout();
    vc_console_log(7, "%s", text.c_str());
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), std::string(255, 'x') + "\n");
}

TEST(vc_console_log, null_format_writes_nothing) {
    const auto unchecked = &vc_console_log;
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(unchecked(7, no_text), EOF);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

TEST(vc_sanitize, every_byte) {
    for (int value = 1; value < 256; ++value) {
        char text[] = {static_cast<char>(value), 'k', '\0'};
        vc_sanitize(text);
        const bool printable = value >= 0x20 && value <= 0x7E;
        EXPECT_EQ(text[0], printable ? static_cast<char>(value) : '?') << value;
        EXPECT_EQ(text[1], 'k') << value;
    }
}

TEST(vc_sanitize, null_and_empty_are_accepted) {
    vc_sanitize(nullptr);
    char empty[] = "";
    vc_sanitize(empty);
    EXPECT_STREQ(empty, "");
}

// The event log. What an event says is looked at in vc_w32_posix_test.cpp.

TEST(vc_event_type, every_priority) {
    const struct {
        int priority;
        platform::event_type want;
    } cases[] = {
        {-1, platform::event_type::warning}, {0, platform::event_type::warning},
        {1, platform::event_type::warning},  {2, platform::event_type::error},
        {3, platform::event_type::error},    {4, platform::event_type::warning},
        {5, platform::event_type::success},  {6, platform::event_type::success},
        {7, platform::event_type::success},  {8, platform::event_type::warning},
        {9, platform::event_type::warning},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(vc_event_type(c.priority), c.want) << "priority " << c.priority;
    }
    EXPECT_EQ(static_cast<int>(platform::event_type::success), 0);
    EXPECT_EQ(static_cast<int>(platform::event_type::error), 1);
    EXPECT_EQ(static_cast<int>(platform::event_type::warning), 2);
}

std::vector<std::string> event_calls;
bool event_log_missing;

uint32_t watch_event_log(const char *call, const char *subject) {
    const allocation_pause pause;
    const std::string name = call;
    if (name.starts_with("event_log_")) {
        event_calls.push_back(name + " " + subject);
        return name == "event_log_open" && event_log_missing ? 5 : 0;
    }
    return 0;
}

class event_log : public logged_test {
  protected:
    event_log() {
        event_calls.clear();
        event_log_missing = false;
        platform::set_call_observer(watch_event_log);
    }
    ~event_log() override {
        closelog();
        platform::set_call_observer(nullptr);
    }
    std::vector<std::string> calls() {
        std::vector<std::string> taken;
        taken.swap(event_calls);
        return taken;
    }
};

TEST_F(event_log, opens_under_the_source_name) {
    openlog("quillfence-replayer", 1, 16);
    EXPECT_EQ(calls(), (lines{"event_log_open Quillfence"}));
}

TEST_F(event_log, null_ident_does_nothing_at_all) {
    openlog(nullptr, 1, 16);
    EXPECT_EQ(calls(), lines{});
    openlog("first", 0, 0);
    calls();
    openlog(nullptr, 0, 0);
    EXPECT_EQ(syslog(3, "x"), 0);
    EXPECT_EQ(calls(), (lines{"event_log_report first"}));
}

TEST_F(event_log, each_call_reports_one_event_with_the_ident) {
    openlog("me", 0, 0);
    calls();
    EXPECT_EQ(syslog(3, "%d", 1), 0);
    EXPECT_EQ(syslog(7, "%d", 2), 0);
    EXPECT_EQ(calls(), (lines{"event_log_report me", "event_log_report me"}));
}

TEST_F(event_log, opening_again_takes_the_new_ident) {
    openlog("one", 0, 0);
    openlog("two", 0, 0);
    calls();
    syslog(3, "x");
    EXPECT_EQ(calls(), (lines{"event_log_report two"}));
}

TEST_F(event_log, nothing_is_reported_while_closed_or_without_format) {
    EXPECT_EQ(syslog(3, "x"), 0);
    openlog("me", 0, 0);
    calls();
    EXPECT_EQ(syslog_unchecked(3, no_text), 0);
    closelog();
    closelog();
    EXPECT_EQ(syslog(3, "x"), 0);
    EXPECT_EQ(calls(), lines{});
}

TEST_F(event_log, log_that_can_not_be_opened_drops_the_lines) {
    event_log_missing = true;
    openlog("me", 0, 0);
    EXPECT_EQ(syslog(3, "x"), 0);
    closelog();
    openlog("me", 0, 0);
    EXPECT_EQ(calls(), (lines{"event_log_open Quillfence", "event_log_open Quillfence"}));
}

// Kept on purpose.
TEST_F(event_log, events_are_lost_after_a_failed_allocation_until_opened_again) {
    openlog("me", 0, 0);
    calls();
    {
        failing_allocation failing(1);
        EXPECT_EQ(syslog(3, "x"), 0);
    }
    EXPECT_EQ(syslog(3, "x"), 0);
    {
        failing_allocation failing(1);
        EXPECT_EQ(syslog(3, "x"), 0);
    }
    EXPECT_EQ(calls(), lines{});
    openlog("me again", 0, 0);
    syslog(3, "x");
    EXPECT_EQ(calls(), (lines{"event_log_open Quillfence", "event_log_report me again"}));
}

TEST_F(event_log, without_memory_for_the_ident_events_go_out_under_null) {
    {
        failing_allocation failing(1);
        openlog("me", 0, 0);
    }
    calls();
    syslog(3, "x");
    EXPECT_EQ(calls(), (lines{"event_log_report (null)"}));
}

// asprintf.

class vc_w32_asprintf : public logged_test {};

TEST_F(vc_w32_asprintf, formats_into_a_new_string) {
    text_slot slot;
    EXPECT_EQ(quillfence::asprintf(slot.slot(), "%s-%d", "a", 12), 4);
    EXPECT_EQ(slot.str(), "a-12");
}

TEST_F(vc_w32_asprintf, frees_and_replaces_what_the_destination_holds) {
    text_slot slot("old");
    EXPECT_EQ(quillfence::asprintf(slot.slot(), "<%s>", slot.text), 5);
    EXPECT_EQ(slot.str(), "<old>");
}

TEST_F(vc_w32_asprintf, cuts_at_1023_characters) {
    const std::string longest(1023, 'x');
    text_slot slot;
    EXPECT_EQ(quillfence::asprintf(slot.slot(), "%s", longest.c_str()), 1023);
    EXPECT_EQ(slot.str(), longest);
    EXPECT_EQ(quillfence::asprintf(slot.slot(), "%sy", longest.c_str()), -1);
    EXPECT_EQ(slot.str(), longest);
}

TEST_F(vc_w32_asprintf, refuses_null_arguments) {
    EXPECT_EQ(quillfence::asprintf(nullptr, "x"), -1);
    text_slot slot("kept");
    EXPECT_EQ(asprintf_unchecked(slot.slot(), no_text), -1);
    EXPECT_EQ(slot.str(), "kept");
    const std::string line = std::string("asprintf: ") + strerror(EINVAL);
    EXPECT_EQ(log.errors(), (lines{line, line}));
}

TEST_F(vc_w32_asprintf, keeps_the_destination_without_memory) {
    text_slot slot("kept");
    {
        failing_allocation failing(1);
        EXPECT_EQ(quillfence::asprintf(slot.slot(), "x"), -1);
    }
    EXPECT_EQ(slot.str(), "kept");
    EXPECT_EQ(log.errors(), (lines{std::string("asprintf: ") + strerror(ENOMEM)}));
}

// localtime_r.

class vc_w32_localtime : public logged_test {
  protected:
    vc_w32_localtime() {
        platform::environment_set("TZ", "XYZ-2"); // two hours east of UTC
        platform::time_zone_changed();
    }
    ~vc_w32_localtime() override {
        platform::environment_set("TZ", nullptr);
        platform::time_zone_changed();
    }
};

TEST_F(vc_w32_localtime, sets_all_nine_fields) {
    tm fields;
    memset(&fields, 0x55, sizeof fields);
    const int64_t seconds = 68'166'000; // 1972-02-28 23:00:00 UTC
    EXPECT_EQ(quillfence::localtime_r(&seconds, &fields), &fields);
    EXPECT_EQ(fields.tm_sec, 0);
    EXPECT_EQ(fields.tm_min, 0);
    EXPECT_EQ(fields.tm_hour, 1);
    EXPECT_EQ(fields.tm_mday, 29);
    EXPECT_EQ(fields.tm_mon, 1);
    EXPECT_EQ(fields.tm_year, 72);
    EXPECT_EQ(fields.tm_wday, 2);
    EXPECT_EQ(fields.tm_yday, 59);
    EXPECT_EQ(fields.tm_isdst, 0);
}

TEST_F(vc_w32_localtime, takes_times_beyond_32_bits) {
    tm fields = {};
    const int64_t seconds = 4'294'967'296; // 2106-02-07 06:28:16 UTC
    EXPECT_EQ(quillfence::localtime_r(&seconds, &fields), &fields);
    EXPECT_EQ(fields.tm_year, 206);
    EXPECT_EQ(fields.tm_hour, 8);
    EXPECT_EQ(fields.tm_min, 28);
    EXPECT_EQ(fields.tm_sec, 16);
}

TEST_F(vc_w32_localtime, refuses_null_and_times_that_do_not_convert) {
    tm fields = {};
    fields.tm_year = 99;
    const int64_t good = 0;
    const int64_t far_away = INT64_MAX;
    EXPECT_EQ(quillfence::localtime_r(nullptr, &fields), nullptr);
    EXPECT_EQ(quillfence::localtime_r(&good, nullptr), nullptr);
    EXPECT_EQ(quillfence::localtime_r(&far_away, &fields), nullptr);
    EXPECT_EQ(fields.tm_year, 99);
    const std::string line = std::string("localtime_r: ") + strerror(EINVAL);
    EXPECT_EQ(log.errors(), (lines{line, line, line}));
}

// Small things.

class vc_w32_small : public logged_test {};

TEST_F(vc_w32_small, strndup_copies_at_most_length_characters) {
    const struct {
        const char *text;
        size_t length;
        const char *want;
    } cases[] = {
        {"abc", 0, ""},    {"abc", 2, "ab"}, {"abc", 3, "abc"},
        {"abc", 9, "abc"}, {"", 5, ""},      {"abc", SIZE_MAX, "abc"},
    };
    for (const auto &c : cases) {
        text_slot copy;
        copy.text = vc_strndup(c.text, c.length);
        EXPECT_EQ(copy.str(), c.want) << c.text << ", " << c.length;
    }
}

TEST_F(vc_w32_small, strndup_does_not_read_behind_the_length) {
    const char unterminated[] = {'a', 'b', 'c'};
    text_slot copy;
    copy.text = vc_strndup(unterminated, 3);
    EXPECT_EQ(copy.str(), "abc");
}

TEST_F(vc_w32_small, strndup_without_memory_sets_errno_and_says_nothing) {
    errno = 0;
    {
        failing_allocation failing(1);
        EXPECT_EQ(vc_strndup("abc", 3), nullptr);
    }
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(vc_w32_small, strndup_refuses_null) {
    EXPECT_EQ(vc_strndup(nullptr, 3), nullptr);
    EXPECT_EQ(log.errors(), (lines{std::string("vc_strndup: ") + strerror(EINVAL)}));
}

TEST_F(vc_w32_small, address_as_number_in_host_order) {
    EXPECT_EQ(vc_ip_to_host_u32("127.0.0.1"), 0x7F000001u);
    EXPECT_EQ(vc_ip_to_host_u32("192.0.2.129"), 0xC0000281u);
    EXPECT_EQ(vc_ip_to_host_u32("0.0.0.0"), 0u);
    EXPECT_EQ(vc_ip_to_host_u32("not an address"), 0xFFFFFFFFu);
}

TEST(vc_breakpoint, does_not_wait_when_the_bypass_exists) {
    log_capture log;
    drive_c drive;
    drive.write("c:/vc_breakpoint_bypass", "");
    EXPECT_NE(vc_breakpoint(), 0);
    drive.remove("c:/vc_breakpoint_bypass");
    drive.make_folder("c:/vc_breakpoint_bypass");
    EXPECT_NE(vc_breakpoint(), 0);
    drive.remove("c:/vc_breakpoint_bypass");
}

} // namespace
} // namespace quillfence::testing
