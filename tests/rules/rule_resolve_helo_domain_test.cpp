#include <cerrno>

#include "dns_session.h"

namespace quillfence::testing {
namespace {

class resolve_helo_domain : public name_rule_test {
  protected:
    resolve_helo_domain()
        : name_rule_test({"rule_resolve_helo_domain", rule_resolve_helo_domain, &smtp_state::helo,
                          &smtp_state::helo_resolves}) {}
};

TEST_F(resolve_helo_domain, nothing_to_judge) {
    const lines want = {"E " + std::string(std::strerror(EINVAL))};
    EXPECT_EQ(rule_resolve_helo_domain(nullptr), 0);
    EXPECT_EQ(said(), want);
    EXPECT_EQ(judge(nullptr), 0);
    EXPECT_EQ(said(), want);
    EXPECT_EQ(judge(nullptr, 2), 0) << "the HELO is looked for before the cache";
    EXPECT_EQ(said(), want);
}

TEST_F(resolve_helo_domain, cached_verdict_asks_nothing) {
    expect_cached_verdicts({"mail.example", " no domain ", ""});
}

TEST_F(resolve_helo_domain, invalid_names) {
    for (const char *helo : {"", "host", "[192.0.2.1]", "192.0.2.1", "a..b",
                             "localhost.localdomain", "localhost.l", "bad_name.example"}) {
        EXPECT_EQ(judge(helo), 1) << helo;
        EXPECT_EQ(said(), lines{"D HELO [" + std::string(helo) + "] is not valid"});
        EXPECT_EQ(state->helo_resolves, 0u);
        EXPECT_EQ(dns.asked().size(), 0u);
    }
}

TEST_F(resolve_helo_domain, answers) {
    expect_answers("mail.example", "HELO [mail.example]");
}

TEST_F(resolve_helo_domain, blanks_are_trimmed_for_good) {
    answer(0, 0, 0);
    EXPECT_EQ(judge("  mail.example "), 0);
    EXPECT_STREQ(state->helo, "mail.example");
    EXPECT_EQ(said(), lines{"D HELO [mail.example] resolves - setting flag"});
}

TEST_F(resolve_helo_domain, without_memory_nothing_is_kept) {
    expect_nothing_kept_without_memory("mail.example");
}

TEST_F(resolve_helo_domain, hands_the_dns_option_on) {
    expect_dns_option_handed_on("mail.example");
}

} // namespace
} // namespace quillfence::testing
