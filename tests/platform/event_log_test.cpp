#include "platform/event_log.h"

#include <gtest/gtest.h>

#include "platform/error_numbers.h"
#include "platform/observer.h"

namespace quillfence::platform {
namespace {

constexpr uint32_t event_id = 0x40020100;

// What becomes of an event lies outside the process; here, that each step can be taken.
TEST(event_log, opens_reports_and_closes) {
    platform::event_log *const log = event_log_open("Quillfence");
    ASSERT_NE(log, nullptr);
    for (const event_type type : {event_type::success, event_type::error, event_type::warning}) {
        event_log_report(log, type, event_id, "quillfence-test", "a test message");
    }
    event_log_close(log);
}

TEST(event_log, null_is_accepted) {
    event_log_close(nullptr);
    event_log_report(nullptr, event_type::error, event_id, "ident", "message");
    platform::event_log *const log = event_log_open("Quillfence");
    ASSERT_NE(log, nullptr);
    event_log_report(log, event_type::error, event_id, nullptr, "message");
    event_log_report(log, event_type::error, event_id, "ident", nullptr);
    event_log_close(log);
}

TEST(event_log, can_be_made_to_fail) {
    set_call_observer([](const char *, const char *) -> uint32_t { return error_access_denied; });
    platform::event_log *const log = event_log_open("Quillfence");
    set_call_observer(nullptr);
    EXPECT_EQ(log, nullptr);
}

} // namespace
} // namespace quillfence::platform
