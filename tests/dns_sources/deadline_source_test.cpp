#include "deadline_source.h"

#include <gtest/gtest.h>

#include "scripted_source.h"

namespace quillfence::testing {
namespace {

using namespace dns_sources;
using namespace std::chrono_literals;

deadline_source::clock::time_point moment;

deadline_source::clock::time_point by_test() {
    return moment;
}

class deadline : public ::testing::Test {
  protected:
    // Every question takes this long.
    std::chrono::milliseconds cost = 0ms;
    scripted_source behind{[this](const question &) {
        moment += cost;
        return found({"A 192.0.2.1"});
    }};
};

TEST_F(deadline, no_question_once_the_time_is_used_up) {
    deadline_source timed(behind, 1000ms, by_test);
    cost = 400ms;
    for (const auto left : {1000ms, 600ms, 200ms}) {
        EXPECT_EQ(timed.ask(ask_for("a.example.")).status, 0u);
        EXPECT_EQ(behind.last().limit, left) << "the rest is the question's limit";
    }
    behind.asked();
    EXPECT_EQ(timed.ask(ask_for("a.example.")), answer_of_status(status_deadline));
    EXPECT_EQ(behind.asked(), texts{});
}

TEST_F(deadline, time_between_questions_counts) {
    deadline_source timed(behind, 1000ms, by_test);
    moment += 999ms;
    EXPECT_EQ(timed.ask(ask_for("a.example.")).status, 0u);
    EXPECT_EQ(behind.last().limit, 1ms);
    moment += 1ms;
    EXPECT_EQ(timed.ask(ask_for("a.example.")).status, status_deadline);
}

TEST_F(deadline, a_stricter_limit_stays) {
    deadline_source timed(behind, 1000ms, by_test);
    question asked = ask_for("a.example.");
    asked.limit = 10ms;
    timed.ask(asked);
    EXPECT_EQ(behind.last().limit, 10ms);
    asked.limit = 5000ms;
    timed.ask(asked);
    EXPECT_EQ(behind.last().limit, 1000ms);
}

TEST_F(deadline, silence_at_the_end_is_no_answer) {
    scripted_source silent([this](const question &) {
        moment += cost;
        return answer_of_status(platform::dns_status_timeout);
    });
    deadline_source timed(silent, 1000ms, by_test);
    cost = 900ms;
    EXPECT_EQ(timed.ask(ask_for("a.example.")), answer_of_status(platform::dns_status_timeout))
        << "the question had all of its own time";
    cost = 99ms;
    answer cut_off = answer_of_status(status_deadline);
    cut_off.said = platform::dns_status_timeout;
    EXPECT_EQ(timed.ask(ask_for("a.example.")), cut_off);
}

TEST_F(deadline, part_of_a_millisecond_is_none) {
    deadline_source timed(behind, 1ms, by_test);
    moment += 1us;
    EXPECT_EQ(timed.ask(ask_for("a.example.")).status, status_deadline);
}

TEST_F(deadline, by_the_system) {
    deadline_source timed(behind, 3600000ms);
    EXPECT_EQ(timed.ask(ask_for("a.example.")).status, 0u);
    EXPECT_LE(behind.last().limit, 3600000ms);
    EXPECT_GT(behind.last().limit, 3500000ms);
    deadline_source over(behind, 0ms);
    EXPECT_EQ(over.ask(ask_for("a.example.")).status, status_deadline);
}

} // namespace
} // namespace quillfence::testing
