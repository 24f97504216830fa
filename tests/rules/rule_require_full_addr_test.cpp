#include "rule_verdict.h"
#include "rules.h"

namespace quillfence::testing {
namespace {

using rule_require_full_addr_test = traced_test;

TEST_F(rule_require_full_addr_test, recipients) {
    static const struct {
        const char *to;
        int want;
        lines said;
    } cases[] = {
        {nullptr, 1, {"D NULL or empty recipient address"}},
        {"", 1, {"D NULL or empty recipient address"}},
        {"bob", 1, {"D Recipient address [bob] is invalid"}},
        {"bob@host", 1, {"D Recipient address [bob@host] is invalid"}},
        {"bob@example.net", 0, {}},
    };
    for (const auto &c : cases) {
        session state;
        session::put(&state->rcpt_to, c.to);
        EXPECT_EQ(JUDGED(rule_require_full_addr, state), (verdict{c.want, c.said}));
    }
    EXPECT_EQ(JUDGED(rule_require_full_addr, nullptr), (verdict{0, {"E Invalid argument"}}));
}

} // namespace
} // namespace quillfence::testing
