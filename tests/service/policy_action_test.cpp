// What a mail server is told: from a decision and what is enforced, one line that is safe to send.
#include "policy_action.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillfence::service {

static std::ostream &operator<<(std::ostream &out, const policy_action &made) {
    return out << made.text;
}
static bool operator==(const policy_action &one, const policy_action &other) {
    return one.is == other.is && one.text == other.text;
}

} // namespace quillfence::service

namespace quillfence::testing {
namespace {

using namespace service;
using decision::decided_by;
using decision::verdict;

decision::decision rejected(const std::string &rule, const std::string &notice) {
    decision::decision made;
    made.is = verdict::reject;
    made.by = decided_by::rule;
    made.rule = rule;
    made.notice = notice;
    return made;
}

decision::decision decided(verdict is, decided_by by) {
    decision::decision made;
    made.is = is;
    made.by = by;
    made.rule = "from_whitelist";
    return made;
}

const policy_action no_objection = {policy_answer::dunno, "DUNNO"};

TEST(policy_action, observing_is_the_default) {
    const enforcement nothing;
    EXPECT_EQ(action_of(rejected("require_helo", "Say HELO"), nothing), no_objection);
    EXPECT_EQ(action_of(decided(verdict::accept, decided_by::nothing), nothing), no_objection);
    EXPECT_EQ(action_of(decided(verdict::accept, decided_by::exempt), nothing), no_objection);
}

TEST(policy_action, enforced_rules_refuse) {
    const policy_action refusal = {policy_answer::reject, "550 5.7.1 Say HELO"};
    EXPECT_EQ(action_of(rejected("require_helo", "Say HELO"), {.all = true}), refusal);
    EXPECT_EQ(action_of(rejected("require_helo", "Say HELO"), {.reject = {"require_helo"}}),
              refusal);
    EXPECT_EQ(action_of(rejected("valid_ptr", "No name"), {.reject = {"require_helo"}}),
              no_objection);
}

TEST(policy_action, a_rule_that_warns_refuses_nobody) {
    const policy_action warning = {policy_answer::warn, "WARN require_helo: Say HELO"};
    EXPECT_EQ(action_of(rejected("require_helo", "Say HELO"), {.warn = {"require_helo"}}), warning);
    EXPECT_EQ(
        action_of(rejected("require_helo", "Say HELO"), {.all = true, .warn = {"require_helo"}}),
        warning);
    EXPECT_EQ(action_of(rejected("valid_ptr", "No name"), {.warn = {"require_helo"}}),
              no_objection);
}

TEST(policy_action, what_is_not_refused_passes_whatever_is_enforced) {
    const enforcement all = {.all = true, .exempt_passes = true};
    EXPECT_EQ(action_of(decided(verdict::accept, decided_by::nothing), all), no_objection);
    EXPECT_EQ(action_of(decided(verdict::accept, decided_by::engine_off), all), no_objection);
    EXPECT_EQ(action_of(decided(verdict::undecided, decided_by::missing), all), no_objection);
    EXPECT_EQ(action_of(decided(verdict::undecided, decided_by::error), all), no_objection);
    EXPECT_EQ(action_of(decided(verdict::accept, decided_by::exempt), all),
              (policy_action{policy_answer::ok, "OK"}));
}

TEST(policy_action, a_notice_is_cleaned) {
    const struct {
        std::string notice;
        const char *want;
    } cases[] = {
        {"No\r\n250 OK", "550 5.7.1 No 250 OK"},
        {"a\tb\x01\x7F  c", "550 5.7.1 a b c"},
        {" \n text \r\n", "550 5.7.1 text"},
        {"gr\xC3\xBC\xC3\x9F", "550 5.7.1 gr????"},
        {std::string("a\0b", 3), "550 5.7.1 a b"},
        {"", "550 5.7.1 Refused by the rule require_helo"},
        {"\r\n\x02", "550 5.7.1 Refused by the rule require_helo"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(action_of(rejected("require_helo", c.notice), {.all = true}).text, c.want);
    }
}

// Whatever a client has brought into a notice: one line of printable ASCII, with its end no longer
// than a reply line may be.
TEST(policy_action, every_action_is_one_reply_line) {
    for (int c = 0; c < 256; ++c) {
        for (const size_t length : {1u, 400u, 499u, 500u, 501u, 5000u}) {
            const std::string notice(length, static_cast<char>(c));
            for (const bool warns : {false, true}) {
                enforcement how = {.all = true};
                if (warns) {
                    how.warn = {"valid_ptr"};
                }
                const std::string text = action_of(rejected("valid_ptr", notice), how).text;
                EXPECT_LE(text.size() + 2, 512u);
                EXPECT_TRUE(text.starts_with(warns ? "WARN valid_ptr: " : "550 5.7.1 "));
                EXPECT_GT(text.size(), warns ? 16u : 10u);
                EXPECT_TRUE(std::all_of(text.begin(), text.end(),
                                        [](char one) { return one >= ' ' && one <= '~'; }));
            }
        }
    }
    const std::string longest =
        action_of(rejected("valid_ptr", std::string(500, 'x')), {.all = true}).text;
    EXPECT_EQ(longest, "550 5.7.1 " + std::string(500, 'x')) << "no letter less than there may be";
}

// --- names of rules ---

using names = std::vector<std::string>;

TEST(rule_names, of_the_table_and_its_steps) {
    names read;
    EXPECT_EQ(read_rule_names("require_helo,block_lists,block_rbl_lists,require_helo", &read),
              std::nullopt);
    EXPECT_EQ(read, (names{"require_helo", "block_lists", "block_rbl_lists"}));
}

TEST(rule_names, unknown_ones_are_refused_with_near_ones) {
    const struct {
        const char *text;
        const char *want;
    } cases[] = {
        {"require_hello", "\"require_hello\" is no rule; did you mean require_helo?"},
        {"valid_ptr,block_list", "\"block_list\" is no rule; did you mean block_lists"},
        {"forgery", "\"forgery\" is no rule; did you mean known_sender_forgery?"},
        {"qqqqqqqqqqqqqqqq", "\"qqqqqqqqqqqqqqqq\" is no rule; docs/rules.md lists them"},
        {"", "a name is missing: write RULE,RULE"},
        {"valid_ptr,", "a name is missing: write RULE,RULE"},
        {"from_whitelist", "from_whitelist is a whitelist's rule: it exempts and refuses nobody"},
        {"a\nb", "\"a b\" is no rule"},
    };
    for (const auto &c : cases) {
        names read;
        const auto why = read_rule_names(c.text, &read);
        ASSERT_TRUE(why) << c.text;
        EXPECT_TRUE(why->starts_with(c.want)) << *why;
    }
}

TEST(rule_names, a_rule_can_not_both_refuse_and_warn) {
    EXPECT_EQ(contradiction({.reject = {"valid_ptr"}, .warn = {"require_helo"}}), std::nullopt);
    EXPECT_EQ(contradiction({.all = true, .warn = {"require_helo"}}), std::nullopt);
    EXPECT_EQ(contradiction({.reject = {"valid_ptr"}, .warn = {"require_helo", "valid_ptr"}}),
              "valid_ptr can't both refuse and warn");
}

} // namespace
} // namespace quillfence::testing
