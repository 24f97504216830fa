#include "utc_text.h"

#include <gtest/gtest.h>

namespace quillfence::decision {
namespace {

// The moments are those of well-known values of the Unix time.
TEST(utc_text, moments) {
    EXPECT_EQ(utc_text(0), "1970-01-01T00:00:00Z");
    EXPECT_EQ(utc_text(1000000000), "2001-09-09T01:46:40Z");
    EXPECT_EQ(utc_text(951782400), "2000-02-29T00:00:00Z");
    EXPECT_EQ(utc_text(4102444799), "2099-12-31T23:59:59Z");
    EXPECT_EQ(utc_text(-1), "1969-12-31T23:59:59Z");
}

TEST(utc_text, milliseconds) {
    EXPECT_EQ(utc_text(1000000000, 0), "2001-09-09T01:46:40.000Z");
    EXPECT_EQ(utc_text(1000000000, 7), "2001-09-09T01:46:40.007Z");
    EXPECT_EQ(utc_text(1000000000, 999), "2001-09-09T01:46:40.999Z");
}

} // namespace
} // namespace quillfence::decision
