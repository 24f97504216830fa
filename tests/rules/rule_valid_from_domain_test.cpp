#include <cerrno>

#include "dns_session.h"

namespace quillfence::testing {
namespace {

class valid_from_domain : public name_rule_test {
  protected:
    valid_from_domain()
        : name_rule_test({"rule_valid_from_domain", rule_valid_from_domain, &smtp_state::mail_from,
                          &smtp_state::mail_resolves}) {}
};

TEST_F(valid_from_domain, nothing_to_judge) {
    const lines want = {"E " + std::string(std::strerror(EINVAL))};
    EXPECT_EQ(rule_valid_from_domain(nullptr), 0);
    EXPECT_EQ(said(), want);
    EXPECT_EQ(judge(nullptr), 0);
    EXPECT_EQ(said(), want);
    EXPECT_EQ(judge(nullptr, 2), 0) << "the sender is looked for before the cache";
    EXPECT_EQ(said(), want);
}

TEST_F(valid_from_domain, cached_verdict_asks_nothing) {
    expect_cached_verdicts({"u@mail.example", " no domain ", ""});
}

TEST_F(valid_from_domain, senders_without_a_domain) {
    for (const char *sender : {"", "bounce message", "user"}) {
        EXPECT_EQ(judge(sender), 1) << sender;
        EXPECT_EQ(said(),
                  lines{"D address [" + std::string(sender) + "] does not contain '@' symbol"});
        EXPECT_EQ(state->mail_resolves, 0u);
    }
    for (const char *domain : {"host", "a..b", "[192.0.2.1]", "b@mail.example", "mail.example."}) {
        EXPECT_EQ(judge(("u@" + std::string(domain)).c_str()), 1) << domain;
        EXPECT_EQ(said(), lines{"D domain [" + std::string(domain) + "] flagged as invalid"});
        EXPECT_EQ(state->mail_resolves, 0u);
    }
    EXPECT_EQ(dns.asked().size(), 0u);
}

TEST_F(valid_from_domain, nothing_behind_the_at_sign) {
    EXPECT_EQ(judge("u@"), 1);
    EXPECT_EQ(log.errors(), lines{"vc_is_ip: " + std::string(std::strerror(EINVAL))});
    EXPECT_EQ(state->mail_resolves, 0u);
}

TEST_F(valid_from_domain, address_as_domain_counts_as_resolving) {
    for (const char *sender : {"u@192.0.2.1", "u@2001:db8::1"}) {
        EXPECT_EQ(judge(sender), 0) << sender;
        EXPECT_EQ(said(), lines{});
        EXPECT_EQ(state->mail_resolves, 1u);
        EXPECT_EQ(dns.asked().size(), 0u);
    }
}

TEST_F(valid_from_domain, answers) {
    expect_answers("u@mail.example", "address [u@mail.example]");
}

TEST_F(valid_from_domain, blanks_are_trimmed_for_good) {
    answer(0, 0, 0);
    for (const char *sender : {" u@mail.example", "u@mail.example ", " \tu@mail.example\r\n"}) {
        EXPECT_EQ(judge(sender), 0) << sender;
        EXPECT_STREQ(state->mail_from, "u@mail.example");
    }
    // Only a blank starts it.
    EXPECT_EQ(judge("\tu@mail.example\t"), 1);
    EXPECT_STREQ(state->mail_from, "\tu@mail.example\t");
}

TEST_F(valid_from_domain, without_memory_nothing_is_kept) {
    expect_nothing_kept_without_memory("u@mail.example");
}

TEST_F(valid_from_domain, hands_the_dns_option_on) {
    expect_dns_option_handed_on("u@mail.example");
}

} // namespace
} // namespace quillfence::testing
