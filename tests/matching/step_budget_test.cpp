#include "step_budget.h"

#include <thread>

#include <gtest/gtest.h>

#include "failing_memory.h"

namespace quillfence::testing {
namespace {

TEST(step_budget, without_one_a_match_may_take_the_most) {
    take_steps(1000);
    EXPECT_EQ(steps_to_take(50), 50u);
    EXPECT_FALSE(steps_are_spent());
}

TEST(step_budget, gives_what_is_left) {
    const step_scope steps(100);
    EXPECT_EQ(steps_to_take(50), 50u);
    take_steps(50);
    EXPECT_EQ(steps_to_take(50), 50u);
    take_steps(30);
    EXPECT_EQ(steps_to_take(50), 20u);
    EXPECT_FALSE(steps_are_spent());
    take_steps(20);
    EXPECT_EQ(steps_to_take(50), 0u);
    EXPECT_TRUE(steps_are_spent());
    take_steps(1); // and stays so
    EXPECT_TRUE(steps_are_spent());
}

TEST(step_budget, more_than_32_bits) {
    const step_scope steps(uint64_t{1} << 40);
    EXPECT_EQ(steps_to_take(4'000'000'000), 4'000'000'000u);
}

TEST(step_budget, ends_with_its_scope) {
    {
        const step_scope steps(0);
        EXPECT_TRUE(steps_are_spent());
    }
    EXPECT_FALSE(steps_are_spent());
    EXPECT_EQ(steps_to_take(7), 7u);
}

TEST(step_budget, the_outer_one_goes_on) {
    const step_scope outer(10);
    {
        const step_scope inner(1000);
        EXPECT_EQ(steps_to_take(500), 10u);
        take_steps(4);
    }
    EXPECT_EQ(steps_to_take(500), 6u);
}

TEST(step_budget, is_the_thread_s_own) {
    const step_scope steps(10);
    std::thread([] {
        EXPECT_EQ(steps_to_take(500), 500u);
        const step_scope theirs(0);
        EXPECT_TRUE(steps_are_spent());
    }).join();
    EXPECT_EQ(steps_to_take(500), 10u);
}

TEST(step_budget, costs_no_memory) {
    const unsigned long before = allocations_made();
    {
        const step_scope steps(10);
        take_steps(steps_to_take(5));
    }
    EXPECT_EQ(allocations_made() - before, 0u);
}

} // namespace
} // namespace quillfence::testing
