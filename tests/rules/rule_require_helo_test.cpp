#include "rule_verdict.h"
#include "rules.h"

namespace quillfence::testing {
namespace {

using rule_require_helo_test = traced_test;

TEST_F(rule_require_helo_test, a_missing_helo) {
    static const struct {
        const char *helo;
        int want;
        const char *said;
    } cases[] = {
        {nullptr, 1, "D HELO is NULL or empty"},
        {"", 1, "D HELO is NULL or empty"},
        {"mx.example.org", 0, "D HELO [mx.example.org] exists!"},
        {" ", 0, "D HELO [ ] exists!"},
    };
    for (const auto &c : cases) {
        session state;
        session::put(&state->helo, c.helo);
        EXPECT_EQ(JUDGED(rule_require_helo, state), (verdict{c.want, {c.said}}));
    }
    EXPECT_EQ(JUDGED(rule_require_helo, nullptr), (verdict{0, {"E Invalid argument"}}));
}

} // namespace
} // namespace quillfence::testing
