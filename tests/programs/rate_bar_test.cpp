#include "rate_bar.h"

#include <gtest/gtest.h>

namespace quillfence::testing {
namespace {

using programs::rate_text;

TEST(rate_bar, how_far_how_fast_and_how_long_still) {
    const std::string ten(10, '#');
    const std::string thirty(30, '.');
    EXPECT_EQ(rate_text(246'000, 25, 100, 20.0), "[" + ten + thirty + "]  25%  12300/s  1:00 left");
    EXPECT_EQ(rate_text(1, 1, 10'001, 1.0),
              "[" + std::string(40, '.') + "]   0%  1/s  2:46:40 left");
}

TEST(rate_bar, nothing_is_left_at_the_end) {
    EXPECT_EQ(rate_text(10, 100, 100, 2.0), "[" + std::string(40, '#') + "] 100%  5/s");
    EXPECT_EQ(rate_text(10, 120, 100, 2.0), "[" + std::string(40, '#') + "] 100%  5/s")
        << "a file that has grown";
}

TEST(rate_bar, at_the_beginning_nothing_is_known) {
    EXPECT_EQ(rate_text(0, 0, 100, 0.0), "[" + std::string(40, '.') + "]   0%  0/s");
}

TEST(rate_bar, without_a_total) {
    EXPECT_EQ(rate_text(3000, 1, std::nullopt, 2.0), "3000  1500/s");
    EXPECT_EQ(rate_text(0, 0, 0, 1.0), "0  0/s") << "an empty file";
}

} // namespace
} // namespace quillfence::testing
