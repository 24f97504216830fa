#include "rule_verdict.h"
#include "rules.h"

namespace quillfence::testing {
namespace {

using rule_mail_from_strict_addr_parse_test = traced_test;

TEST_F(rule_mail_from_strict_addr_parse_test, senders_and_the_cache) {
    static const struct {
        int32_t cache;
        const char *from;
        int want;
        const char *said;
        int32_t after;
    } cases[] = {
        {0, "a@b.org", 0, "D from address [a@b.org] is valid", 1},
        {0, "ab.org", 1, "D from address [ab.org] is not a valid address", 2},
        {0, "<a@b.org>", 1, "D from address [<a@b.org>] is not a valid address", 2},
        {0, "", 0, "D from address detected as bounce", 1},
        {0, nullptr, 0, "D from address detected as bounce", 1},
        {1, "ab.org", 0, "D cached value RFC format flagged as 'yes'", 1},
        {1, nullptr, 0, "D cached value RFC format flagged as 'yes'", 1},
        {2, "a@b.org", 1, "D cached value RFC format flagged as 'no'", 2},
        {2, nullptr, 1, "D cached value RFC format flagged as 'no'", 2},
    };
    for (const auto &c : cases) {
        session state;
        state->rfc = c.cache;
        session::put(&state->mail_from, c.from);
        EXPECT_EQ(JUDGED(rule_mail_from_strict_addr_parse, state), (verdict{c.want, {c.said}}));
        EXPECT_EQ(state->rfc, c.after);
    }
    EXPECT_EQ(JUDGED(rule_mail_from_strict_addr_parse, nullptr),
              (verdict{0, {"E Invalid argument"}}));
}

} // namespace
} // namespace quillfence::testing
