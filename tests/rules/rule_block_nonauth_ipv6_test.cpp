#include "rule_verdict.h"
#include "rules.h"

namespace quillfence::testing {
namespace {

using rule_block_nonauth_ipv6_test = traced_test;

TEST_F(rule_block_nonauth_ipv6_test, clients) {
    static const struct {
        const char *name;
        uint8_t ipv6;
        const char *auth;
        uint8_t localhost;
        int want;
    } cases[] = {
        {"IPv6 without authentication", 1, nullptr, 0, 1},
        {"an empty user is no authentication", 1, "", 0, 1},
        {"authenticated", 1, "carol", 0, 0},
        {"the user (null) is a user", 1, "(null)", 0, 0},
        {"local host", 1, nullptr, 1, 0},
        {"local host, authenticated", 1, "carol", 1, 0},
        {"IPv4", 0, nullptr, 0, 0},
        {"IPv4 local host", 0, nullptr, 1, 0},
        {"IPv4, authenticated", 0, "carol", 0, 0},
    };
    for (const auto &c : cases) {
        session state;
        session::put(&state->ip, "2001:db8::1");
        session::put(&state->auth_user, c.auth);
        state->ipv6 = c.ipv6;
        state->localhost = c.localhost;
        EXPECT_EQ(rule_block_nonauth_ipv6(state), c.want) << c.name;
        EXPECT_EQ(rule_lines(log, "rule_block_nonauth_ipv6"),
                  c.want ? lines{"D non authentication ipv6 connection detected"} : lines{})
            << c.name;
    }
}

TEST_F(rule_block_nonauth_ipv6_test, needs_an_address) {
    for (const char *ip : {static_cast<const char *>(nullptr), ""}) {
        session state;
        session::put(&state->ip, ip);
        state->ipv6 = 1;
        EXPECT_EQ(rule_block_nonauth_ipv6(state), 0);
        EXPECT_EQ(rule_lines(log, "rule_block_nonauth_ipv6"),
                  lines{"D no IP address found. Can't run test"});
    }
    EXPECT_EQ(rule_block_nonauth_ipv6(nullptr), 0);
    EXPECT_EQ(rule_lines(log, "rule_block_nonauth_ipv6"), lines{"E Invalid argument"});
}

} // namespace
} // namespace quillfence::testing
