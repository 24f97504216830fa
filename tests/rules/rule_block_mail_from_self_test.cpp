#include "rule_verdict.h"
#include "rules.h"

namespace quillfence::testing {
namespace {

using rule_block_mail_from_self_test = traced_test;

TEST_F(rule_block_mail_from_self_test, sender_and_recipient) {
    static const struct {
        const char *from, *to;
        int want;
        const char *said;
    } cases[] = {
        {"a@b.org", "a@b.org", 1, "D from [a@b.org] and to [a@b.org] addresses match"},
        {"A@b.ORG", "a@B.org", 1, "D from [A@b.ORG] and to [a@B.org] addresses match"},
        {"a@b.org", "a@b.or", 0, "D from [a@b.org] and to [a@b.or] addresses no match"},
        {"\xC4@b.org", "\xE4@b.org", 0, "D from [?@b.org] and to [?@b.org] addresses no match"},
        {"", "", 1, "D from [] and to [] addresses match"},
        {nullptr, "a@b.org", 0, "D NULL parameters found - skipping"},
        {"a@b.org", nullptr, 0, "D NULL parameters found - skipping"},
        {nullptr, nullptr, 0, "D NULL parameters found - skipping"},
    };
    for (const auto &c : cases) {
        session state;
        session::put(&state->mail_from, c.from);
        session::put(&state->rcpt_to, c.to);
        EXPECT_EQ(JUDGED(rule_block_mail_from_self, state), (verdict{c.want, {c.said}}));
    }
    EXPECT_EQ(JUDGED(rule_block_mail_from_self, nullptr), (verdict{0, {"E Invalid argument"}}));
}

} // namespace
} // namespace quillfence::testing
