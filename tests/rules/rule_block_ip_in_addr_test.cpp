#include "rule_verdict.h"
#include "rules.h"

namespace quillfence::testing {
namespace {

using rule_block_ip_in_addr_test = traced_test;

TEST_F(rule_block_ip_in_addr_test, addresses_in_place_of_domains) {
    static const struct {
        const char *from, *to;
        int want;
        lines said;
    } cases[] = {
        {"a@192.0.2.9", "b@example.net", 1, {"D from domain [192.0.2.9] is an ip address"}},
        {"a@2001:db8::1", "b@example.net", 1, {"D from domain [2001:db8::1] is an ip address"}},
        {"a@example.org", "b@192.0.2.9", 1, {"D rcpt domain [192.0.2.9] is an ip address"}},
        {"a@192.0.2.9", "b@192.0.2.8", 1, {"D from domain [192.0.2.9] is an ip address"}},
        {"a@example.org", "b@example.net", 0, {}},
        {"a@[192.0.2.9]", "b@[192.0.2.9]", 0, {}},
        {"a@b@192.0.2.9", "b@example.net", 0, {}}, // the first @ counts
        {"a@192.0.2.9.", "b@300.1.1.1", 0, {}},
        {"nobody",
         "b@192.0.2.9",
         1,
         {"D failed to find domain part of from address [nobody]. Skipping",
          "D rcpt domain [192.0.2.9] is an ip address"}},
        {"bounce message",
         "nobody",
         0,
         {"D failed to find domain part of from address [bounce message]. Skipping",
          "D failed to find domain part of rcpt to address [nobody]. Skipping"}},
        {"",
         "",
         0,
         {"D failed to find domain part of from address []. Skipping",
          "D failed to find domain part of rcpt to address []. Skipping"}},
        {nullptr, nullptr, 0, {}},
        {nullptr, "b@192.0.2.9", 1, {"D rcpt domain [192.0.2.9] is an ip address"}},
        {"a@192.0.2.9", nullptr, 1, {"D from domain [192.0.2.9] is an ip address"}},
    };
    for (const auto &c : cases) {
        session state;
        session::put(&state->mail_from, c.from);
        session::put(&state->rcpt_to, c.to);
        EXPECT_EQ(JUDGED(rule_block_ip_in_addr, state), (verdict{c.want, c.said}))
            << (c.from ? c.from : "(none)") << " to " << (c.to ? c.to : "(none)");
    }
}

// A DEBUG line, unlike in the other rules.
TEST_F(rule_block_ip_in_addr_test, without_a_session) {
    EXPECT_EQ(JUDGED(rule_block_ip_in_addr, nullptr), (verdict{0, {"D Invalid argument"}}));
}

TEST_F(rule_block_ip_in_addr_test, log_line_of_an_empty_domain) {
    session state;
    session::put(&state->mail_from, "a@");
    EXPECT_EQ(rule_block_ip_in_addr(state), 0);
    EXPECT_EQ(log.errors(), lines{"vc_is_ip: Invalid argument"});
}

} // namespace
} // namespace quillfence::testing
