#include "trouble_count.h"

#include <gtest/gtest.h>

#include "scripted_source.h"

namespace quillfence::testing {
namespace {

using dns_sources::trouble_count;
using dns_sources::zone_trouble;

TEST(trouble, each_kind_by_zone) {
    trouble_count source;
    for (const uint32_t one : {refused, servfail, 9502u, timed_out, timed_out}) {
        source.note(ask_for("1.2.0.192.rbl.example."), answer_of_status(one));
    }
    const auto troubles = source.troubles();
    ASSERT_EQ(troubles.size(), 1u);
    const zone_trouble &all = troubles.at("rbl.example");
    EXPECT_EQ(all.refused, 1u);
    EXPECT_EQ(all.failed, 2u);
    EXPECT_EQ(all.silent, 2u);
    EXPECT_EQ(all.all(), 5u);
}

// A name without such a record, or that can't be asked, is not the servers' trouble.
TEST(trouble, an_answer_is_none) {
    for (const uint32_t status : {0u, nxdomain, no_records, 123u}) {
        trouble_count source;
        source.note(ask_for("a.example."), answer_of_status(status));
        EXPECT_TRUE(source.troubles().empty()) << status;
    }
}

// What a guard makes of an answer does not count: it stands in front.
TEST(trouble, what_the_server_said_counts) {
    answer guarded = answer_of_status(9002);
    guarded.said = 0;
    trouble_count source;
    source.note(ask_for("a.example."), guarded);
    EXPECT_TRUE(source.troubles().empty());
}

TEST(trouble, zones_beyond_the_bound_are_counted_together) {
    const answer failed = answer_of_status(servfail);
    trouble_count source;
    for (size_t i = 0; i < trouble_count::most_zones + 7; ++i) {
        source.note(ask_for("z" + std::to_string(i) + ".example."), failed);
    }
    source.note(ask_for("z3.example."), failed);
    const auto troubles = source.troubles();
    EXPECT_EQ(troubles.size(), trouble_count::most_zones + 1);
    EXPECT_EQ(troubles.at("").failed, 7u);
    EXPECT_EQ(troubles.at("z3.example").failed, 2u);
}

} // namespace
} // namespace quillfence::testing
