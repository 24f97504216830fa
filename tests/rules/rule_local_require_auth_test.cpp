#include "drive_c.h"
#include "rule_verdict.h"
#include "rules.h"
#include "test_registry.h"

namespace quillfence::testing {
namespace {

class rule_local_require_auth_test : public traced_drive_test {
  protected:
    test_registry store;
};

// The line speaks of the ip address although the sender is missing: kept on purpose.
TEST_F(rule_local_require_auth_test, needs_a_sender) {
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

TEST_F(rule_local_require_auth_test, passes_other_senders) {
    session state;
    session::put(&state->mail_from, "a@elsewhere.example");
    EXPECT_EQ(rule_local_require_auth(state), 0);
    EXPECT_EQ(rule_lines(log, "rule_local_require_auth"),
              (lines{"D checking for entry [a@elsewhere.example]",
                     "D Nothing to check when sender is not local"}));
}

TEST_F(rule_local_require_auth_test, local_senders) {
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
