// What the client is told when a rule has hit.
#include <cstring>
#include <memory>
#include <string>

#include "expected_rules.h"
#include "log_capture.h"
#include "vc_nulltermlist.h"

namespace quillfence::testing {

namespace {

class notice_test : public traced_test {
  protected:
    void SetUp() override {
        state = new_smtp_state();
        ASSERT_NE(state, nullptr);
        log.take();
    }
    void TearDown() override {
        free_smtp_state(state);
    }
    std::string notice(const char *rejection, message_hook hook = nullptr) {
        const std::unique_ptr<spam_rule, decltype(&free_rule)> rule(
            new_rule("some_rule", nullptr, 1, 1, 1, 1, rejection), free_rule);
        return taken(build_rejection_notice(rule.get(), state, hook));
    }
    static std::string taken(char *text) {
        const std::string copy = text ? text : "(none)";
        free(text);
        return copy;
    }
    void fill() {
        state->ip = strdup("192.0.2.1");
        vc_lstcat(&state->ptr_results, strdup("host.example.org"));
        state->rdns = state->ptr_results[0];
        state->helo = strdup("mx.example.org");
        state->mail_from = strdup("a@example.org");
        state->rcpt_to = strdup("b@example.net");
    }
    smtp_state *state = nullptr;
};

} // namespace

TEST_F(notice_test, every_macro_is_replaced_wherever_it_stands) {
    fill();
    EXPECT_EQ(notice("%IP% %RDNS% %HELO% %FROM% %RCPT% %TO% %IP%%IP% %ip% %OTHER%"),
              "192.0.2.1 host.example.org mx.example.org a@example.org b@example.net "
              "b@example.net 192.0.2.1192.0.2.1 %ip% %OTHER%");
}

TEST_F(notice_test, absent_values_read_unknown) {
    state->ip = strdup("192.0.2.1");
    EXPECT_EQ(notice("%IP% %RDNS% %HELO% %FROM% %RCPT% %TO%"),
              "192.0.2.1 unknown unknown unknown unknown unknown");
}

TEST_F(notice_test, empty_values_leave_nothing) {
    state->ip = strdup("");
    state->helo = strdup("");
    state->mail_from = strdup("");
    state->rcpt_to = strdup("");
    EXPECT_EQ(notice("[%IP%][%HELO%][%FROM%][%RCPT%][%TO%]"), "[][][][][]");
}

TEST_F(notice_test, the_first_ptr_name_stands_in_for_rdns) {
    state->ip = strdup("192.0.2.1");
    vc_lstcat(&state->ptr_results, strdup("one.example.org"));
    vc_lstcat(&state->ptr_results, strdup("two.example.org"));
    EXPECT_EQ(notice("%RDNS%"), "one.example.org");
    state->rdns = state->ptr_results[1];
    EXPECT_EQ(notice("%RDNS%"), "two.example.org");
    state->rdns = nullptr;
}

TEST_F(notice_test, a_list_of_ptr_names_without_a_name_reads_unknown) {
    state->ip = strdup("192.0.2.1");
    state->ptr_results = static_cast<char **>(calloc(1, sizeof(char *)));
    EXPECT_EQ(notice("%RDNS%"), "unknown");
}

TEST_F(notice_test, an_incomplete_address) {
    state->ip = strdup("192.0.2.1");
    state->mail_from = strdup("a");
    vc_list_entry *rules = build_rule_table();
    EXPECT_EQ(taken(build_rejection_notice(find_rule(rules, "require_full_addr"), state, nullptr)),
              "Incomplete email address [a] [unknown]. See " HELP
              "best-practices/require-full-email-address/ for more information.");
    vc_destroy_list(&rules, free_rule_data);
}

TEST_F(notice_test, a_text_without_macros_comes_back_as_a_new_text) {
    fill();
    const std::unique_ptr<spam_rule, decltype(&free_rule)> rule(
        new_rule("some_rule", nullptr, 1, 1, 1, 1, "plain"), free_rule);
    char *text = build_rejection_notice(rule.get(), state, nullptr);
    EXPECT_STREQ(text, "plain");
    EXPECT_NE(text, rule->rejection);
    free(text);
}

// Kept on purpose: each replacement goes over the whole text so far.
TEST_F(notice_test, a_value_may_bring_a_later_macro_along) {
    state->ip = strdup("%HELO%");
    state->helo = strdup("%FROM%");
    state->mail_from = strdup("%RCPT%/%HELO%");
    state->rcpt_to = strdup("%TO%/%IP%");
    EXPECT_EQ(notice("%IP%"), "%TO%/%IP%/%IP%/%HELO%");
}

TEST_F(notice_test, a_session_without_ip_has_no_notice) {
    state->helo = strdup("mx.example.org");
    EXPECT_EQ(notice("%HELO%"), "(none)");
    EXPECT_EQ(log.errors(), lines{"vc_str_replace: Invalid argument"});
}

TEST_F(notice_test, a_notice_is_cut_at_1023_characters) {
    fill();
    free(state->helo);
    state->helo = strdup(std::string(2000, 'h').c_str());
    EXPECT_EQ(notice("[%HELO%]"), "[" + std::string(1022, 'h'));
}

TEST_F(notice_test, missing_arguments) {
    const std::unique_ptr<spam_rule, decltype(&free_rule)> rule(
        new_rule("some_rule", nullptr, 1, 1, 1, 1, "text"), free_rule);
    spam_rule nameless = *rule;
    nameless.name = nullptr;
    spam_rule silent = *rule;
    silent.rejection = nullptr;
    const struct {
        const spam_rule *rule;
        smtp_state *state;
    } cases[] = {{nullptr, state}, {&nameless, state}, {&silent, state}, {rule.get(), nullptr}};
    for (const auto &c : cases) {
        EXPECT_EQ(build_rejection_notice(c.rule, c.state, nullptr), nullptr);
        EXPECT_EQ(log.transcript(), lines{"E build_rejection_notice: Invalid argument"});
    }
}

namespace {

std::string asked;
char *supplying_hook(const char *name, smtp_state *state) {
    asked = std::string(name) + " for " + state->ip;
    return strdup("supplied for %HELO%");
}
char *silent_hook(const char *name, smtp_state *) {
    asked = name;
    return nullptr;
}

} // namespace

TEST_F(notice_test, a_hook_supplies_the_template) {
    fill();
    EXPECT_EQ(notice("own", supplying_hook), "supplied for mx.example.org");
    EXPECT_EQ(asked, "some_rule for 192.0.2.1");
}

TEST_F(notice_test, a_hook_that_supplies_nothing_leaves_the_rules_own_text) {
    fill();
    EXPECT_EQ(notice("own %HELO%", silent_hook), "own mx.example.org");
    EXPECT_EQ(asked, "some_rule");
}

namespace {
char *hook_with_an_empty_text(const char *, smtp_state *) {
    return strdup("");
}
} // namespace

TEST_F(notice_test, an_empty_text_of_a_hook_is_a_text) {
    fill();
    EXPECT_EQ(notice("own", hook_with_an_empty_text), "");
}

TEST_F(notice_test, debug_lines) {
    fill();
    notice("for %HELO%");
    lines own;
    for (const std::string &line : log.debugs()) {
        if (line.starts_with("build_rejection_notice: ")) {
            own.push_back(line);
        }
    }
    EXPECT_EQ(own, (lines{"build_rejection_notice: after replacement macros: rejection is: [for "
                          "mx.example.org]",
                          "build_rejection_notice: full notice: [for mx.example.org]"}));
}

// Every text, with every value present and with every value but the ip absent.
TEST_F(notice_test, the_texts_of_all_rules) {
    static const struct {
        const char *name, *full, *bare;
    } cases[] = {
        {"inbound", "Server 192.0.2.1 has sent too much mail. Try again later.",
         "Server 192.0.2.1 has sent too much mail. Try again later."},
        {"outbound", "You have sent too much mail. Try again later.",
         "You have sent too much mail. Try again later."},
        {"to_whitelist", "whitelist", "whitelist"},
        {"from_whitelist", "whitelisted", "whitelisted"},
        {"ip_whitelist", "whitelisted", "whitelisted"},
        {"block_lists",
         "Server IP 192.0.2.1 listed as abusive. See " HELP
         "best-practices/ip-reputation/ for more information.",
         "Server IP 192.0.2.1 listed as abusive. See " HELP
         "best-practices/ip-reputation/ for more information."},
        {"block_rbl_lists",
         "Server IP 192.0.2.1 listed as abusive. See " HELP
         "best-practices/ip-reputation/ for more information.",
         "Server IP 192.0.2.1 listed as abusive. See " HELP
         "best-practices/ip-reputation/ for more information."},
        {"block_all_mail",
         "Recipient b@example.net only accepts white listed emails. See " HELP
         "best-practices/empowering-your-users/ for more information.",
         "Recipient unknown only accepts white listed emails. See " HELP
         "best-practices/empowering-your-users/ for more information."},
        {"block_ip_in_addr",
         "The system does not allow messages that use IP addresses instead of domain names. "
         "See " HELP "best-practices/block-ip-in-address/ for more information.",
         "The system does not allow messages that use IP addresses instead of domain names. "
         "See " HELP "best-practices/block-ip-in-address/ for more information."},
        {"require_helo",
         "Missing HELO. See " HELP "best-practices/require-helo-identifier/ for more information.",
         "Missing HELO. See " HELP "best-practices/require-helo-identifier/ for more information."},
        {"valid_helo_domain",
         "HELO argument [mx.example.org] is malformed. See " HELP
         "best-practices/valid-helo-identifier/ for more information.",
         "HELO argument [unknown] is malformed. See " HELP
         "best-practices/valid-helo-identifier/ for more information."},
        {"block_mail_from_self",
         "Recipient b@example.net does not allow messages that appear to come from themselves "
         "(possible forgery). See " HELP
         "best-practices/block-email-from-self/ for more information.",
         "Recipient unknown does not allow messages that appear to come from themselves (possible "
         "forgery). See " HELP "best-practices/block-email-from-self/ for more information."},
        {"require_full_addr",
         "Incomplete email address [a@example.org] [b@example.net]. See " HELP
         "best-practices/require-full-email-address/ for more information.",
         "Incomplete email address [unknown] [unknown]. See " HELP
         "best-practices/require-full-email-address/ for more information."},
        {"mail_from_strict_addr_parse",
         "Bad or malformed FROM address [a@example.org]. See " HELP
         "best-practices/strict-address-parsing/ for more information.",
         "Bad or malformed FROM address [unknown]. See " HELP
         "best-practices/strict-address-parsing/ for more information."},
        {"rfc_mail_from",
         "Email address [a@example.org] fails to meet RFC 2821 requirements. See " HELP
         "best-practices/rfc-mail-from/ for more information.",
         "Email address [unknown] fails to meet RFC 2821 requirements. See " HELP
         "best-practices/rfc-mail-from/ for more information."},
        {"valid_ptr",
         "Server 192.0.2.1 has an invalid PTR record. See " HELP
         "best-practices/reverse-dns-naming-conventions-valid-ptr/ for more information.",
         "Server 192.0.2.1 has an invalid PTR record. See " HELP
         "best-practices/reverse-dns-naming-conventions-valid-ptr/ for more information."},
        {"check_ip_reverse_dns",
         "Your server IP address [192.0.2.1] is missing a reverse DNS entry. See " HELP
         "best-practices/check-ip-reverse-dns/ for more information.",
         "Your server IP address [192.0.2.1] is missing a reverse DNS entry. See " HELP
         "best-practices/check-ip-reverse-dns/ for more information."},
        {"check_dynamic_reverse_dns_default",
         "Your server IP address [192.0.2.1] does not have a valid reverse DNS entry "
         "[host.example.org]. See " HELP
         "best-practices/check_dynamic_reverse_dns/ for more information.",
         "Your server IP address [192.0.2.1] does not have a valid reverse DNS entry [unknown]. "
         "See " HELP "best-practices/check_dynamic_reverse_dns/ for more information."},
        {"check_dynamic_reverse_dns",
         "Your server IP address [192.0.2.1] does not have a valid reverse DNS entry "
         "[host.example.org]. See " HELP
         "best-practices/check_dynamic_reverse_dns/ for more information.",
         "Your server IP address [192.0.2.1] does not have a valid reverse DNS entry [unknown]. "
         "See " HELP "best-practices/check_dynamic_reverse_dns/ for more information."},
        {"check_reverse_dns_list",
         "Your server hostname [host.example.org] for IP [192.0.2.1] matches a pattern which was "
         "abusive in the past. See " HELP
         "best-practices/check_reverse_dns_list/ for more information.",
         "Your server hostname [unknown] for IP [192.0.2.1] matches a pattern which was abusive in "
         "the past. See " HELP "best-practices/check_reverse_dns_list/ for more information."},
        {"check_confirmed_dyna",
         "Your server IP address [192.0.2.1] does not have a valid reverse DNS entry "
         "[host.example.org]. See " HELP
         "best-practices/check_dynamic_reverse_dns/ for more information.",
         "Your server IP address [192.0.2.1] does not have a valid reverse DNS entry [unknown]. "
         "See " HELP "best-practices/check_dynamic_reverse_dns/ for more information."},
        {"ip_blacklist",
         "Your email is rejected -- you are on the recipient's blacklist. See " HELP
         "best-practices/empowering-your-users/ for more information.",
         "Your email is rejected -- you are on the recipient's blacklist. See " HELP
         "best-practices/empowering-your-users/ for more information."},
        {"from_blacklist",
         "Your email is rejected -- you are on the recipient's blacklist. See " HELP
         "best-practices/empowering-your-users/ for more information.",
         "Your email is rejected -- you are on the recipient's blacklist. See " HELP
         "best-practices/empowering-your-users/ for more information."},
        {"helo_blacklist",
         "Your server has been blacklisted. See " HELP
         "best-practices/empowering-your-users/ for more information.",
         "Your server has been blacklisted. See " HELP
         "best-practices/empowering-your-users/ for more information."},
        {"country_blacklist",
         "Your country has been blacklisted. See " HELP
         "best-practices/empowering-your-users/ for more information.",
         "Your country has been blacklisted. See " HELP
         "best-practices/empowering-your-users/ for more information."},
        {"helo_whitelist", "whitelisted", "whitelisted"},
        {"resolve_helo_domain",
         "HELO argument [mx.example.org] is missing a DNS entry. See " HELP
         "best-practices/resolve-helo-identifier/ for more information.",
         "HELO argument [unknown] is missing a DNS entry. See " HELP
         "best-practices/resolve-helo-identifier/ for more information."},
        {"valid_from_domain",
         "Mail from domain [a@example.org] is missing A or MX DNS record. See " HELP
         "best-practices/valid_from_address/ for more information.",
         "Mail from domain [unknown] is missing A or MX DNS record. See " HELP
         "best-practices/valid_from_address/ for more information."},
        {"known_sender_forgery",
         "Mail from domain does not match with valid sender source. See " HELP
         "best-practices/known_sender_forgery/ for more information.",
         "Mail from domain does not match with valid sender source. See " HELP
         "best-practices/known_sender_forgery/ for more information."},
        {"local_require_auth",
         "Please check your email settings for SMTP Authentication or contact your email service "
         "provider for assistance.",
         "Please check your email settings for SMTP Authentication or contact your email service "
         "provider for assistance."},
        {"block_nonauth_ipv6",
         "This server only accepts deliveries from IPv6 clients when they use SMTP authentication. "
         "See " HELP "best-practices/block-nonauth-ipv6/ for more information.",
         "This server only accepts deliveries from IPv6 clients when they use SMTP authentication. "
         "See " HELP "best-practices/block-nonauth-ipv6/ for more information."},
    };
    vc_list_entry *rules = build_rule_table();
    for (const auto &c : cases) {
        EXPECT_EQ(taken(build_rejection_notice(find_rule(rules, c.name), state, nullptr)), "(none)")
            << c.name << ": no ip";
        EXPECT_EQ(log.errors(), lines{"vc_str_replace: Invalid argument"}) << c.name;
    }
    state->ip = strdup("192.0.2.1");
    for (const auto &c : cases) {
        EXPECT_EQ(taken(build_rejection_notice(find_rule(rules, c.name), state, nullptr)), c.bare)
            << c.name;
    }
    free(state->ip);
    fill();
    for (const auto &c : cases) {
        EXPECT_EQ(taken(build_rejection_notice(find_rule(rules, c.name), state, nullptr)), c.full)
            << c.name;
    }
    EXPECT_EQ(std::size(cases), rule_rows().size());
    vc_destroy_list(&rules, free_rule_data);
}

} // namespace quillfence::testing
