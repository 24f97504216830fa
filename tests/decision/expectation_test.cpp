#include "expectation.h"

#include <gtest/gtest.h>

namespace quillfence::decision {
namespace {

using texts = std::vector<std::string>;

rule_record rule_that(const char *name, outcome did, source from = {}) {
    rule_record rule;
    rule.rule = name;
    rule.decision = did;
    rule.from = std::move(from);
    return rule;
}

// Refused by line 2 of a blacklist, with a report.
decision_record refused() {
    decision_record record;
    record.decision.is = verdict::reject;
    record.decision.by = decided_by::rule;
    record.decision.rule = "from_blacklist";
    record.decision.notice = "go away";
    record.rules = {
        rule_that("from_whitelist", outcome::no_hit),
        rule_that("from_blacklist", outcome::hit,
                  list_source{"c:/quillfence/from_blacklist", 2, "*@spammer.example", "wildcard"})};
    record.report = report{"", {"require_helo", "valid_ptr"}, {"sample.bms"}};
    return record;
}

TEST(expectation, what_is_not_named_may_be_anything) {
    EXPECT_TRUE(compare({}, refused()).empty());
}

TEST(expectation, every_member_as_it_came) {
    expectation all;
    all.verdict = {"reject"};
    all.by = {"rule"};
    all.rule = {"from_blacklist"};
    all.where = {""};
    all.zone = {""};
    all.notice = {"go away"};
    all.file = {"c:/quillfence/from_blacklist"};
    all.entry = {"*@spammer.example"};
    all.rules = {{"from_whitelist", {"no_hit"}}, {"from_blacklist", {"exempt", "hit"}}};
    all.maps = texts{};
    all.spam_hits = texts{"valid_ptr", "require_helo"};
    all.bms_hits = texts{"sample.bms"};
    EXPECT_EQ(compare(all, refused()), std::vector<mismatch>{});
    EXPECT_EQ(corrected(all, refused()), all);
}

// One member wrong at a time: what is said of it, and what it is corrected to.
TEST(expectation, each_member_that_is_wrong) {
    const struct {
        void (*expect)(expectation *wrong);
        void (*correct)(expectation *right);
        mismatch want;
    } cases[] = {
        {[](expectation *e) { e->verdict = {"accept"}; },
         [](expectation *e) { e->verdict = {"reject"}; },
         {"verdict", "accept", "reject"}},
        {[](expectation *e) {
             e->by = {"nothing", "exempt"};
         },
         [](expectation *e) { e->by = {"rule"}; },
         {"by", "nothing or exempt", "rule"}},
        {[](expectation *e) { e->rule = {""}; },
         [](expectation *e) { e->rule = {"from_blacklist"}; },
         {"rule", "(none)", "from_blacklist"}},
        {[](expectation *e) { e->where = {"user"}; },
         [](expectation *e) { e->where = {""}; },
         {"where", "user", "(none)"}},
        {[](expectation *e) { e->zone = {"rbl.example"}; },
         [](expectation *e) { e->zone = {""}; },
         {"zone", "rbl.example", "(none)"}},
        {[](expectation *e) { e->notice = {"Go away"}; },
         [](expectation *e) { e->notice = {"go away"}; },
         {"notice", "Go away", "go away"}},
        {[](expectation *e) { e->file = {"from_blacklist"}; },
         [](expectation *e) { e->file = {"c:/quillfence/from_blacklist"}; },
         {"file", "from_blacklist", "c:/quillfence/from_blacklist"}},
        {[](expectation *e) { e->entry = {"x@spammer.example"}; },
         [](expectation *e) { e->entry = {"*@spammer.example"}; },
         {"entry", "x@spammer.example", "*@spammer.example"}},
        {[](expectation *e) {
             e->rules = {{"from_whitelist", {"hit"}}};
         },
         [](expectation *e) {
             e->rules = {{"from_whitelist", {"no_hit"}}};
         },
         {"rules.from_whitelist", "hit", "no_hit"}},
        {[](expectation *e) { e->maps = texts{"sample.bms"}; },
         [](expectation *e) { e->maps = texts{}; },
         {"maps", "sample.bms", "(none)"}},
        {[](expectation *e) { e->spam_hits = texts{"require_helo"}; },
         [](expectation *e) {
             e->spam_hits = texts{"require_helo", "valid_ptr"};
         },
         {"spam_hits", "require_helo", "require_helo, valid_ptr"}},
        {[](expectation *e) { e->bms_hits = texts{}; },
         [](expectation *e) { e->bms_hits = texts{"sample.bms"}; },
         {"bms_hits", "(none)", "sample.bms"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.want.what);
        expectation wrong;
        c.expect(&wrong);
        EXPECT_EQ(compare(wrong, refused()), std::vector<mismatch>{c.want});
        expectation right;
        c.correct(&right);
        EXPECT_EQ(corrected(wrong, refused()), right);
        EXPECT_EQ(compare(right, refused()), std::vector<mismatch>{});
    }
}

TEST(expectation, a_rule_that_the_record_does_not_have_stays_wrong) {
    expectation odd;
    odd.rules = {{"no_such_rule", {"hit"}}};
    EXPECT_EQ(compare(odd, refused()),
              (std::vector<mismatch>{{"rules.no_such_rule", "hit", "(no such rule)"}}));
    EXPECT_EQ(corrected(odd, refused()), odd);
}

TEST(expectation, a_record_without_report_meets_no_expectation_of_one) {
    expectation hits;
    hits.spam_hits = texts{};
    decision_record record = refused();
    record.report->failed = "not known: helo";
    EXPECT_EQ(compare(hits, record),
              (std::vector<mismatch>{{"spam_hits", "(none)", "no report: not known: helo"}}));
    record.report.reset();
    EXPECT_EQ(compare(hits, record), (std::vector<mismatch>{{"spam_hits", "(none)", "no report"}}));
    EXPECT_EQ(corrected(hits, record), hits);
}

TEST(expectation, bytes_may_be_expected_as_they_are_or_as_they_are_shown) {
    decision_record record = refused();
    record.decision.notice = "caf\xE9 \xC3\xA9";
    expectation either;
    either.notice = {"caf\xE9 \xC3\xA9"};
    EXPECT_TRUE(compare(either, record).empty());
    either.notice = {"caf\xEF\xBF\xBD \xC3\xA9"};
    EXPECT_TRUE(compare(either, record).empty());
    either.notice = {"cafe"};
    EXPECT_EQ(corrected(either, record).notice, texts{"caf\xEF\xBF\xBD \xC3\xA9"});
}

TEST(expectation, in_short) {
    expectation want;
    want.verdict = {"reject"};
    want.by = {"rule"};
    want.rule = {"from_blacklist"};
    EXPECT_EQ(expectation_of(refused()), want);
    decision_record accepted;
    accepted.decision.is = verdict::accept;
    accepted.decision.by = decided_by::nothing;
    want = {};
    want.verdict = {"accept"};
    want.by = {"nothing"};
    EXPECT_EQ(expectation_of(accepted), want) << "no rule, and none expected";
}

TEST(expectation, the_entry_that_decided) {
    const struct {
        source from;
        deciding_entry want;
    } cases[] = {
        {{}, {"", ""}},
        {list_source{"f", 1, "*@x", "wildcard"}, {"f", "*@x"}},
        {range_source{"r", 2, "192.0.2.1", "192.0.2.9", "why"}, {"r", "192.0.2.1 - 192.0.2.9"}},
        {expression_source{"e", 3, "dsl[0-9]", "l", 4}, {"e", "dsl[0-9]"}},
        {block_map_source{"m", 2, "10.11.0.0/16"}, {"m", "10.11.0.0/16"}},
        {sender_network_source{"v", 3, "bank.example"}, {"v", "bank.example"}},
        {registry_source{"SOFTWARE\\X", "Enabled"}, {"SOFTWARE\\X", "Enabled"}},
        {folder_source{"c:/w", "a@x.LST"}, {"c:/w", "a@x.LST"}},
        {address_map_source{"MEAIAM.DLL"}, {"MEAIAM.DLL", ""}},
        {built_in_source{"^dsl", ""}, {"<built-in>", "^dsl"}},
        {built_in_source{"", "valid_ptr"}, {"<built-in>", "valid_ptr"}},
        {file_source{"control", 0}, {"control", ""}},
    };
    for (const auto &c : cases) {
        decision_record record = refused();
        record.rules.back().from = c.from;
        EXPECT_EQ(entry_that_decided(record), c.want) << c.want.file;
    }
    decision_record nobody = refused();
    nobody.decision.rule.clear();
    EXPECT_EQ(entry_that_decided(nobody), deciding_entry());
    EXPECT_EQ(source_that_decided(nobody), nullptr);
}

} // namespace
} // namespace quillfence::decision
