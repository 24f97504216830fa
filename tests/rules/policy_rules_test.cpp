// The rules that decide by a fixed policy.
#include <string>

#include "drive_c.h"
#include "rules.h"
#include "session.h"
#include "test_registry.h"

namespace quillfence::testing {
namespace {

using policy_rules = traced_test;

TEST_F(policy_rules, block_all_mail_blocks_every_session) {
    session state;
    EXPECT_EQ(rule_block_all_mail(state), 1) << "no ip, HELO or sender";
    session::put(&state->ip, "192.0.2.1");
    EXPECT_EQ(rule_block_all_mail(state), 1);
    EXPECT_EQ(rule_lines(log, "rule_block_all_mail"), lines{});
    EXPECT_EQ(rule_block_all_mail(nullptr), 0);
    EXPECT_EQ(rule_lines(log, "rule_block_all_mail"), lines{"E Invalid argument"});
}

TEST_F(policy_rules, block_nonauth_ipv6) {
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

TEST_F(policy_rules, block_nonauth_ipv6_needs_an_address) {
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

// The line speaks of the ip address although the sender is missing: kept on purpose.
TEST_F(policy_rules, local_require_auth_needs_a_sender) {
    for (const char *sender : {static_cast<const char *>(nullptr), ""}) {
        session state;
        session::put(&state->ip, "192.0.2.1");
        session::put(&state->mail_from, sender);
        EXPECT_EQ(rule_local_require_auth(state), 0);
        EXPECT_EQ(rule_lines(log, "rule_local_require_auth"),
                  lines{"D Nothing to check as the ip address is NULL or empty"});
    }
    EXPECT_EQ(rule_local_require_auth(nullptr), 0);
    EXPECT_EQ(rule_lines(log, "rule_local_require_auth"), lines{"E Invalid argument"});
}

TEST_F(policy_rules, local_require_auth_passes_other_senders) {
    session state;
    session::put(&state->mail_from, "a@elsewhere.example");
    EXPECT_EQ(rule_local_require_auth(state), 0);
    EXPECT_EQ(rule_lines(log, "rule_local_require_auth"),
              (lines{"D checking for entry [a@elsewhere.example]",
                     "D Nothing to check when sender is not local"}));
}

class local_senders : public traced_drive_test {
  protected:
    test_registry store;
};

TEST_F(local_senders, local_require_auth) {
    store.set_text("SOFTWARE\\Mail Enable\\Mail Enable", "Configuration Directory",
                   "c:\\quillfence\\Config");
    drive.write("c:/quillfence/Config/DOMAIN.TAB", "hosted.example\t1\r\n");
    static const struct {
        const char *name, *sender, *auth;
        int want;
        const char *line; // after "checking for entry"; null for none
    } cases[] = {
        {"local, not authenticated", "a@hosted.example", nullptr, 1, nullptr},
        {"an empty user is no authentication", "a@hosted.example", "", 1, nullptr},
        {"local, authenticated", "a@hosted.example", "carol", 0,
         "D Sender domain is local and SMTP session is authenticated"},
        {"the user (null) is a user", "a@hosted.example", "(null)", 0,
         "D Sender domain is local and SMTP session is authenticated"},
        {"not local", "a@other.example", nullptr, 0, "D Nothing to check when sender is not local"},
        {"not local, authenticated", "a@other.example", "carol", 0,
         "D Nothing to check when sender is not local"},
    };
    for (const auto &c : cases) {
        session state;
        session::put(&state->mail_from, c.sender);
        session::put(&state->auth_user, c.auth);
        log.take();
        EXPECT_EQ(rule_local_require_auth(state), c.want) << c.name;
        lines want = {std::string("D checking for entry [") + c.sender + "]"};
        if (c.line) {
            want.push_back(c.line);
        }
        EXPECT_EQ(rule_lines(log, "rule_local_require_auth"), want) << c.name;
    }
}

} // namespace
} // namespace quillfence::testing
