// What the client says about itself, as far as no DNS is needed to judge it.
#include <string>

#include "rules.h"
#include "session.h"

namespace quillfence::testing {
namespace {

class identity_rules : public traced_test {
  protected:
    // What a rule says to a session, as the result and its own lines.
    struct verdict {
        int result;
        lines said;
        bool operator==(const verdict &) const = default;
        friend void PrintTo(const verdict &v, std::ostream *out) {
            *out << v.result << " " << ::testing::PrintToString(v.said);
        }
    };
    verdict judged(const char *name, uint8_t (*rule)(smtp_state *), smtp_state *state) {
        log.take();
        const int result = rule(state);
        return {result, rule_lines(log, name)};
    }
};

#define JUDGED(rule, state) judged(#rule, rule, state)

// --- block_ip_in_addr

TEST_F(identity_rules, block_ip_in_addr) {
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
TEST_F(identity_rules, block_ip_in_addr_without_a_session) {
    EXPECT_EQ(JUDGED(rule_block_ip_in_addr, nullptr), (verdict{0, {"D Invalid argument"}}));
}

// --- require_helo

TEST_F(identity_rules, require_helo) {
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

// --- valid_helo_domain

TEST_F(identity_rules, valid_helo_domain) {
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

TEST_F(identity_rules, valid_helo_domain_without_helo_or_session) {
    session state;
    EXPECT_EQ(JUDGED(rule_valid_helo_domain, state),
              (verdict{0, {"D HELO is NULL - skipping check"}}));
    EXPECT_EQ(JUDGED(rule_valid_helo_domain, nullptr), (verdict{0, {"E Invalid argument"}}));
}

// --- block_mail_from_self

TEST_F(identity_rules, block_mail_from_self) {
    static const struct {
        const char *from, *to;
        int want;
        const char *said;
    } cases[] = {
        {"a@b.org", "a@b.org", 1, "D from [a@b.org] and to [a@b.org] addresses match"},
        {"A@b.ORG", "a@B.org", 1, "D from [A@b.ORG] and to [a@B.org] addresses match"},
        {"a@b.org", "a@b.or", 0, "D from [a@b.org] and to [a@b.or] addresses no match"},
        {"\xC4@b.org", "\xE4@b.org", 0, "D from [?@b.org] and to [?@b.org] addresses no match"},
        {"", "", 1, "D from [] and to [] addresses match"},
        {nullptr, "a@b.org", 0, "D NULL parameters found - skipping"},
        {"a@b.org", nullptr, 0, "D NULL parameters found - skipping"},
        {nullptr, nullptr, 0, "D NULL parameters found - skipping"},
    };
    for (const auto &c : cases) {
        session state;
        session::put(&state->mail_from, c.from);
        session::put(&state->rcpt_to, c.to);
        EXPECT_EQ(JUDGED(rule_block_mail_from_self, state), (verdict{c.want, {c.said}}));
    }
    EXPECT_EQ(JUDGED(rule_block_mail_from_self, nullptr), (verdict{0, {"E Invalid argument"}}));
}

// --- require_full_addr

TEST_F(identity_rules, require_full_addr) {
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

// --- mail_from_strict_addr_parse

TEST_F(identity_rules, mail_from_strict_addr_parse) {
    static const struct {
        int32_t cache;
        const char *from;
        int want;
        const char *said;
        int32_t after;
    } cases[] = {
        {0, "a@b.org", 0, "D from address [a@b.org] is valid", 1},
        {0, "ab.org", 1, "D from address [ab.org] is not a valid address", 2},
        {0, "<a@b.org>", 1, "D from address [<a@b.org>] is not a valid address", 2},
        {0, "", 0, "D from address detected as bounce", 1},
        {0, nullptr, 0, "D from address detected as bounce", 1},
        {1, "ab.org", 0, "D cached value RFC format flagged as 'yes'", 1},
        {1, nullptr, 0, "D cached value RFC format flagged as 'yes'", 1},
        {2, "a@b.org", 1, "D cached value RFC format flagged as 'no'", 2},
        {2, nullptr, 1, "D cached value RFC format flagged as 'no'", 2},
    };
    for (const auto &c : cases) {
        session state;
        state->rfc = c.cache;
        session::put(&state->mail_from, c.from);
        EXPECT_EQ(JUDGED(rule_mail_from_strict_addr_parse, state), (verdict{c.want, {c.said}}));
        EXPECT_EQ(state->rfc, c.after);
    }
    EXPECT_EQ(JUDGED(rule_mail_from_strict_addr_parse, nullptr),
              (verdict{0, {"E Invalid argument"}}));
}

// --- rfc_mail_from

TEST_F(identity_rules, rfc_mail_from) {
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

TEST_F(identity_rules, rfc_mail_from_trims_the_sender) {
    session state;
    session::put(&state->mail_from, " a@b.org\t ");
    EXPECT_EQ(JUDGED(rule_rfc_mail_from, state), (verdict{0, {}}));
    EXPECT_STREQ(state->mail_from, "a@b.org");
}

TEST_F(identity_rules, rfc_mail_from_believes_the_local_host_on_ipv4_only) {
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

TEST_F(identity_rules, log_lines_of_empty_senders) {
    session state;
    session::put(&state->mail_from, "");
    EXPECT_EQ(rule_rfc_mail_from(state), 1);
    EXPECT_EQ(log.errors(), lines{"vc_valid_email_address: Invalid argument"});
    session::put(&state->mail_from, "a@");
    EXPECT_EQ(rule_block_ip_in_addr(state), 0);
    EXPECT_EQ(log.errors(), lines{"vc_is_ip: Invalid argument"});
}

} // namespace
} // namespace quillfence::testing
