#include "rule_verdict.h"
#include "rules.h"

namespace quillfence::testing {
namespace {

using rule_valid_helo_domain_test = traced_test;

TEST_F(rule_valid_helo_domain_test, helo_arguments) {
    static const std::string local = "D HELO is \"localhost.localdomain\"";
    static const struct {
        const char *helo;
        int want;
        lines said;
        const char *after; // the session's HELO afterwards
    } cases[] = {
        {"mx.example.org", 0, {}, "mx.example.org"},
        {" mx.example.org ", 0, {}, "mx.example.org"},
        {"mx.example.org\t ", 0, {}, "mx.example.org"},
        {"  ", 1, {"D HELO [] is not a valid domain"}, ""},
        {"", 1, {"D HELO [] is not a valid domain"}, ""},
        {"\tmx.example.org",
         1,
         {"D HELO [?mx.example.org] is not a valid domain"},
         "\tmx.example.org"},
        {"localhost", 1, {"D HELO [localhost] is not a valid domain"}, "localhost"},
        {"[192.0.2.1]", 1, {"D HELO [[192.0.2.1]] is not a valid domain"}, "[192.0.2.1]"},
        {"192.0.2.1", 1, {"D HELO [192.0.2.1] is not a valid domain"}, "192.0.2.1"},
        {"localhost.localdomain", 1, {local}, "localhost.localdomain"},
        {" localhost.localdomain", 1, {local}, "localhost.localdomain"},
        // A prefix test in exact case: kept on purpose.
        {"localhost.local", 1, {local}, "localhost.local"},
        {"localhost.l", 1, {local}, "localhost.l"},
        {"localhost.localdomain.org", 0, {}, "localhost.localdomain.org"},
        {"localhost.localdomainx", 0, {}, "localhost.localdomainx"},
        {"LOCALHOST.LOCALDOMAIN", 0, {}, "LOCALHOST.LOCALDOMAIN"},
        {"localhost.Local", 0, {}, "localhost.Local"},
        {"localhost.x", 0, {}, "localhost.x"},
    };
    for (const auto &c : cases) {
        session state;
        session::put(&state->helo, c.helo);
        EXPECT_EQ(JUDGED(rule_valid_helo_domain, state), (verdict{c.want, c.said})) << c.helo;
        EXPECT_STREQ(state->helo, c.after);
    }
}

TEST_F(rule_valid_helo_domain_test, without_helo_or_session) {
    session state;
    EXPECT_EQ(JUDGED(rule_valid_helo_domain, state),
              (verdict{0, {"D HELO is NULL - skipping check"}}));
    EXPECT_EQ(JUDGED(rule_valid_helo_domain, nullptr), (verdict{0, {"E Invalid argument"}}));
}

} // namespace
} // namespace quillfence::testing
