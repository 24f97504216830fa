#include "rule_verdict.h"
#include "rules.h"

namespace quillfence::testing {
namespace {

using rule_rfc_mail_from_test = traced_test;

TEST_F(rule_rfc_mail_from_test, senders) {
    static const lines invalid = {"D from argument failed vc_valid_email_address test"};
    static const struct {
        int32_t cache;
        const char *from;
        int want;
        lines said;
    } cases[] = {
        {0, "a@b.org", 0, {}},
        {1, "a@b.org", 0, {}},
        {2, "a@b.org", 0, {}}, // the verdict of the cache is not this rule's
        {0, nullptr, 1, {"D from argument is NULL"}},
        {1, nullptr, 0, {"D argument [(null)] detected as NDR. Skipping"}},
        {1, "", 0, {"D argument [] detected as NDR. Skipping"}},
        {2, "  ", 0, {"D argument [] detected as NDR. Skipping"}},
        {0, "", 1, invalid},
        {0, "ab.org", 1, invalid},
        {0, "a@b", 1, invalid},
        {0, "a@localhost", 1, invalid}, // no dot: not a valid domain in the first place
        {0, "<a@b.org>", 1, invalid},
    };
    for (const auto &c : cases) {
        session state;
        state->rfc = c.cache;
        session::put(&state->ip, "192.0.2.1");
        session::put(&state->mail_from, c.from);
        EXPECT_EQ(JUDGED(rule_rfc_mail_from, state), (verdict{c.want, c.said}))
            << c.cache << " " << (c.from ? c.from : "(none)");
        EXPECT_EQ(state->rfc, c.cache);
    }
    EXPECT_EQ(JUDGED(rule_rfc_mail_from, nullptr), (verdict{0, {"E Invalid argument"}}));
}

TEST_F(rule_rfc_mail_from_test, trims_the_sender) {
    session state;
    session::put(&state->mail_from, " a@b.org\t ");
    EXPECT_EQ(JUDGED(rule_rfc_mail_from, state), (verdict{0, {}}));
    EXPECT_STREQ(state->mail_from, "a@b.org");
}

TEST_F(rule_rfc_mail_from_test, believes_the_local_host_on_ipv4_only) {
    static const lines liar = {
        "D address is claiming to come from localhost, but not really from localhost"};
    static const struct {
        const char *ip, *from;
        int want;
    } cases[] = {
        {"127.0.0.1", "a@localhost.localdomain", 0},
        {"127.0.0.1", "a@LocalHost.LocalDomain", 0},
        {"192.0.2.1", "a@localhost.localdomain", 1},
        {"192.0.2.1", "a@LocalHost.LocalDomain", 1},
        {"::1", "a@localhost.localdomain", 1}, // kept on purpose
        {"127.0.0.2", "a@localhost.localdomain", 1},
        {nullptr, "a@localhost.localdomain", 1},
        {"192.0.2.1", "a@localhost.localdomain.org", 0},
        {"192.0.2.1", "a@localhost.local", 0},
    };
    for (const auto &c : cases) {
        session state;
        session::put(&state->ip, c.ip);
        session::put(&state->mail_from, c.from);
        EXPECT_EQ(JUDGED(rule_rfc_mail_from, state), (verdict{c.want, c.want ? liar : lines{}}))
            << (c.ip ? c.ip : "(none)") << " " << c.from;
    }
}

TEST_F(rule_rfc_mail_from_test, log_line_of_an_empty_sender) {
    session state;
    session::put(&state->mail_from, "");
    EXPECT_EQ(rule_rfc_mail_from(state), 1);
    EXPECT_EQ(log.errors(), lines{"vc_valid_email_address: Invalid argument"});
}

} // namespace
} // namespace quillfence::testing
