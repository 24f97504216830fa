// What the client is told when a rule has hit.
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "expected_rules.h"
#include "log_capture.h"
#include "owned_rule.h"
#include "owned_session.h"
#include "vc_nulltermlist.h"

namespace quillfence::testing {

namespace {

class notice_test : public traced_test {
  protected:
    void SetUp() override {
        log.take();
    }
    std::string notice(const char *rejection, message_hook hook = nullptr) {
        const owned_rule rule = plain_rule("some_rule", rejection);
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
    session state;
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
    const rule_list rules(build_rule_table());
    EXPECT_EQ(
        taken(build_rejection_notice(find_rule(rules.head, "require_full_addr"), state, nullptr)),
        "Incomplete email address [a] [unknown]. See " HELP
        "best-practices/require-full-email-address/ for more information.");
}

TEST_F(notice_test, a_text_without_macros_comes_back_as_a_new_text) {
    fill();
    const owned_rule rule = plain_rule("some_rule", "plain");
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
    const owned_rule rule = plain_rule("some_rule", "text");
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

// A rule's expected text with its macros replaced.
static std::string
filled_in(std::string text,
          std::initializer_list<std::pair<std::string_view, std::string_view>> values) {
    for (const auto &[macro, value] : values) {
        for (size_t at; (at = text.find(macro)) != std::string::npos;) {
            text.replace(at, macro.size(), value);
        }
    }
    return text;
}

// Every text, with every value present and with every value but the ip absent.
TEST_F(notice_test, the_texts_of_all_rules) {
    const rule_list rules(build_rule_table());
    const auto notice_of = [&](const expected_rule &rule) {
        return taken(build_rejection_notice(find_rule(rules.head, rule.name), state, nullptr));
    };
    for (const expected_rule &rule : expected_rules) {
        EXPECT_EQ(notice_of(rule), "(none)") << rule.name << ": no ip";
        EXPECT_EQ(log.errors(), lines{"vc_str_replace: Invalid argument"}) << rule.name;
    }
    state->ip = strdup("192.0.2.1");
    for (const expected_rule &rule : expected_rules) {
        EXPECT_EQ(notice_of(rule), filled_in(rule.rejection, {{"%IP%", "192.0.2.1"},
                                                              {"%RDNS%", "unknown"},
                                                              {"%HELO%", "unknown"},
                                                              {"%FROM%", "unknown"},
                                                              {"%RCPT%", "unknown"}}));
    }
    free(state->ip);
    fill();
    for (const expected_rule &rule : expected_rules) {
        EXPECT_EQ(notice_of(rule), filled_in(rule.rejection, {{"%IP%", "192.0.2.1"},
                                                              {"%RDNS%", "host.example.org"},
                                                              {"%HELO%", "mx.example.org"},
                                                              {"%FROM%", "a@example.org"},
                                                              {"%RCPT%", "b@example.net"}}));
    }
}

} // namespace quillfence::testing
