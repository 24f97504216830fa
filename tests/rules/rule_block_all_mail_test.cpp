#include "rule_verdict.h"
#include "rules.h"

namespace quillfence::testing {
namespace {

using rule_block_all_mail_test = traced_test;

TEST_F(rule_block_all_mail_test, blocks_every_session) {
    session state;
    EXPECT_EQ(rule_block_all_mail(state), 1) << "no ip, HELO or sender";
    session::put(&state->ip, "192.0.2.1");
    EXPECT_EQ(rule_block_all_mail(state), 1);
    EXPECT_EQ(rule_lines(log, "rule_block_all_mail"), lines{});
    EXPECT_EQ(rule_block_all_mail(nullptr), 0);
    EXPECT_EQ(rule_lines(log, "rule_block_all_mail"), lines{"E Invalid argument"});
}

} // namespace
} // namespace quillfence::testing
