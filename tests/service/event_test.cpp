#include "event.h"

#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillfence::testing {
namespace {

using namespace service;
using namespace std::chrono_literals;

class events : public ::testing::Test {
  protected:
    events() {
        set_event_stand_in([this](event_severity severity, std::string_view text) {
            static constexpr const char *words[] = {"notice", "warning", "error"};
            told.push_back(std::string(words[static_cast<int>(severity)]) + " " +
                           std::string(text));
        });
    }
    ~events() override {
        set_event_stand_in({});
    }
    std::vector<std::string> told;
    const event_limiter::time_point begin = event_limiter::time_point() + 1h;
};

using texts = std::vector<std::string>;

TEST_F(events, bytes_that_are_no_text_are_shown_as_marks) {
    tell(event_severity::error, std::string("a\nb\x1b[2J\xC3\xA4\0c", 11));
    EXPECT_EQ(told, (texts{"error a?b?[2J???c"}));
}

TEST_F(events, a_long_one_is_cut) {
    tell(event_severity::notice, std::string(5000, 'x'));
    EXPECT_EQ(told, (texts{"notice " + std::string(1023, 'x')}));
}

TEST_F(events, the_first_of_a_kind_is_told_and_the_rest_counted) {
    event_limiter kind(60s);
    for (int i = 0; i < 1000; ++i) {
        kind.tell(event_severity::warning, "number " + std::to_string(i), begin + i * 1ms);
    }
    EXPECT_EQ(told, (texts{"warning number 0"}));
    kind.settle(begin + 59s);
    EXPECT_EQ(told.size(), 1u);
    kind.settle(begin + 60s);
    EXPECT_EQ(told, (texts{"warning number 0",
                           "warning 999 more of the same kind, the last one: number 999"}));
    kind.settle(begin + 200s);
    EXPECT_EQ(told.size(), 2u);
}

TEST_F(events, the_next_one_settles_as_well) {
    event_limiter kind(60s);
    kind.tell(event_severity::warning, "a", begin);
    kind.tell(event_severity::warning, "b", begin + 1s);
    kind.tell(event_severity::warning, "c", begin + 61s);
    kind.tell(event_severity::warning, "d", begin + 62s);
    EXPECT_EQ(told, (texts{"warning a", "warning 1 more of the same kind, the last one: b",
                           "warning c"}));
}

} // namespace
} // namespace quillfence::testing
