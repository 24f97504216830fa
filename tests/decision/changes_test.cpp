// Two decisions held against each other, and the sums over many.
#include "change.h"

#include <gtest/gtest.h>

#include "change_line.h"
#include "change_tally.h"
#include "top_table.h"

namespace quillfence::testing {
namespace {

using namespace decision;

constexpr char blacklist[] = "c:/quillfence/from_blacklist";
constexpr char whitelist[] = "c:/quillfence/from_whitelist";

list_source line_of(const char *file, uint32_t line, const char *entry) {
    return {file, line, entry, "wildcard"};
}

// A decision that some rule makes, with the rules of all tests in their order.
decision_record decided(verdict is, decided_by by, const char *rule = "", source from = {}) {
    decision_record made;
    made.id = "7";
    made.transaction.ip = "192.0.2.1";
    made.transaction.sender = "A@Victim.example";
    made.decision.is = is;
    made.decision.by = by;
    made.decision.rule = rule;
    uint32_t n = 0;
    for (const char *name : {"from_whitelist", "require_helo", "from_blacklist",
                             "check_dynamic_reverse_dns", "block_lists", "block_rbl_lists"}) {
        rule_record one;
        one.n = ++n;
        one.rule = name;
        if (one.rule == rule) {
            one.decision = by == decided_by::exempt ? outcome::exempt : outcome::hit;
            one.from = from;
        }
        made.rules.push_back(one);
    }
    return made;
}

rule_record &rule_of(decision_record &record, const std::string &name) {
    for (rule_record &one : record.rules) {
        if (one.rule == name) {
            return one;
        }
    }
    ADD_FAILURE() << name;
    return record.rules.front();
}

const decision_record accepted = decided(verdict::accept, decided_by::nothing);
const decision_record blacklisted = decided(verdict::reject, decided_by::rule, "from_blacklist",
                                            line_of(blacklist, 7, "*@victim.example"));

void expect_cause(const decision_record &before, const decision_record &after, config_side side,
                  const char *rule, const config_entry &entry) {
    const decision_change made = compare_decisions(before, after);
    EXPECT_TRUE(made.is_change);
    EXPECT_EQ(made.cause.side, side);
    EXPECT_EQ(made.cause.rule, rule);
    EXPECT_EQ(made.cause.entry.file, entry.file);
    EXPECT_EQ(made.cause.entry.place, entry.place);
    EXPECT_EQ(made.cause.entry.text, entry.text);
}

// --- what a change is ---

TEST(changes, the_same_decision_is_none_wherever_the_line_stands) {
    decision_record moved = blacklisted;
    rule_of(moved, "from_blacklist").from = line_of(blacklist, 8, "*@victim.example");
    const decision_change made = compare_decisions(blacklisted, moved);
    EXPECT_FALSE(made.is_change);
    EXPECT_FALSE(made.is_other_entry);
    EXPECT_EQ(made.id, "");
}

TEST(changes, another_entry_of_the_same_rule_is_told_apart) {
    decision_record other = blacklisted;
    rule_of(other, "from_blacklist").from = line_of(blacklist, 7, "a@victim.example");
    const decision_change made = compare_decisions(blacklisted, other);
    EXPECT_FALSE(made.is_change);
    EXPECT_TRUE(made.is_other_entry);
    EXPECT_EQ(made.cause.entry.text, "a@victim.example");
}

TEST(changes, another_verdict_by_or_rule_is_one) {
    const decision_record others[] = {
        accepted,
        decided(verdict::accept, decided_by::exempt, "from_blacklist"),
        decided(verdict::reject, decided_by::rbl, "from_blacklist"),
        decided(verdict::reject, decided_by::rule, "require_helo"),
        decided(verdict::undecided, decided_by::rule, "from_blacklist"),
    };
    for (const decision_record &other : others) {
        EXPECT_TRUE(compare_decisions(blacklisted, other).is_change);
        EXPECT_TRUE(compare_decisions(other, blacklisted).is_change);
    }
}

// --- what is behind it ---

TEST(changes, a_line_that_came_and_a_line_that_went) {
    const config_entry line = {blacklist, 7, "*@victim.example"};
    expect_cause(accepted, blacklisted, config_side::after, "from_blacklist", line);
    expect_cause(blacklisted, accepted, config_side::before, "from_blacklist", line);
}

TEST(changes, of_two_rules_the_one_that_comes_first) {
    const decision_record dynamic =
        decided(verdict::reject, decided_by::rule, "check_dynamic_reverse_dns",
                expression_source{"c:/quillfence/dynaregex/dyna.cregexes", 3, "dyn[0-9]", "", 0});
    const config_entry line = {blacklist, 7, "*@victim.example"};
    expect_cause(dynamic, blacklisted, config_side::after, "from_blacklist", line);
    expect_cause(blacklisted, dynamic, config_side::before, "from_blacklist", line);
}

TEST(changes, an_exemption_comes_before_all_rules) {
    const decision_record exempt = decided(verdict::accept, decided_by::exempt, "from_whitelist",
                                           line_of(whitelist, 2, "a@victim.example"));
    const config_entry line = {whitelist, 2, "a@victim.example"};
    expect_cause(blacklisted, exempt, config_side::after, "from_whitelist", line);
    expect_cause(exempt, blacklisted, config_side::before, "from_whitelist", line);
}

TEST(changes, a_rule_that_needs_no_entry) {
    const decision_record helo = decided(verdict::reject, decided_by::rule, "require_helo");
    expect_cause(accepted, helo, config_side::after, "require_helo", {});
}

TEST(changes, a_rule_that_is_enabled_on_one_side_alone) {
    decision_record off = accepted;
    rule_of(off, "from_blacklist").decision = outcome::not_enabled;
    expect_cause(off, blacklisted, config_side::after, "from_blacklist",
                 {"c:/quillfence/control/rules.enabled", 0, "from_blacklist"});
}

TEST(changes, an_entry_that_saves_what_had_matched) {
    const config_entry saving = {"c:/quillfence/dynaregex/exempt.cregexes", 4, "dyn9"};
    const decision_record dynamic =
        decided(verdict::reject, decided_by::rule, "check_dynamic_reverse_dns");
    for (const bool by_name : {false, true}) {
        decision_record saved = accepted;
        rule_record &rule = rule_of(saved, "check_dynamic_reverse_dns");
        const source from = expression_source{saving.file, saving.place, saving.text, "", 0};
        if (by_name) {
            rule.names.push_back({"dyn9.example", {}, from});
        } else {
            rule.exempted_by = from;
        }
        expect_cause(dynamic, saved, config_side::after, "check_dynamic_reverse_dns", saving);
        expect_cause(saved, dynamic, config_side::before, "check_dynamic_reverse_dns", saving);
    }
}

TEST(changes, block_maps_block_lists_and_the_switch) {
    decision_record mapped = decided(verdict::reject, decided_by::block_map, "block_lists");
    mapped.block_maps.push_back({"bots.bms", outcome::hit, "10.11.0.0/16", 2, false});
    expect_cause(accepted, mapped, config_side::after, "block_lists",
                 {"c:/quillfence/control/bms.enabled", 0, "bots.bms"});
    decision_record consulted = accepted;
    consulted.block_maps.push_back({"bots.bms", outcome::no_hit, "", 0, false});
    expect_cause(consulted, mapped, config_side::after, "block_lists",
                 {"bots.bms", 2, "10.11.0.0/16"});
    decision_record listed = decided(verdict::reject, decided_by::rbl, "block_rbl_lists");
    listed.decision.zone = "rbl.example";
    expect_cause(accepted, listed, config_side::after, "block_rbl_lists",
                 {"c:/quillfence/rbl.enabled", 0, "rbl.example"});
    expect_cause(blacklisted, decided(verdict::accept, decided_by::engine_off), config_side::after,
                 "", {"c:/quillfence/control/enabled", 0, ""});
}

TEST(changes, what_can_not_be_judged_names_the_rule_that_lacks_something) {
    decision_record missing = decided(verdict::undecided, decided_by::missing);
    rule_of(missing, "require_helo").decision = outcome::undecided;
    expect_cause(accepted, missing, config_side::after, "require_helo", {});
    decision_record off = accepted;
    rule_of(off, "require_helo").decision = outcome::not_enabled;
    expect_cause(off, missing, config_side::after, "require_helo",
                 {"c:/quillfence/control/rules.enabled", 0, "require_helo"});
}

TEST(changes, what_can_not_be_looked_at_names_its_rule) {
    decision_record damaged = decided(verdict::undecided, decided_by::error);
    rule_of(damaged, "from_whitelist").decision = outcome::undecided;
    expect_cause(accepted, damaged, config_side::after, "from_whitelist", {});
    expect_cause(accepted, decided(verdict::undecided, decided_by::error), config_side::after, "",
                 {});
}

// --- where a name stands in a control file ---

constexpr char rules_enabled[] = "c:/quillfence/control/rules.enabled";
constexpr char maps_enabled[] = "c:/quillfence/control/bms.enabled";
constexpr char zones_enabled[] = "c:/quillfence/rbl.enabled";

const control_lines of_before({{rules_enabled, 4, "require_helo"},
                               {zones_enabled, 1, "b.example"}});
const control_lines of_after({{rules_enabled, 7, "require_helo"},
                              {rules_enabled, 9, "require_helo"},
                              {maps_enabled, 3, "bots.bms"},
                              {zones_enabled, 2, "rbl.example"},
                              {blacklist, 1, "*@victim.example"}});

void expect_placed_cause(const decision_record &before, const decision_record &after,
                         config_side side, const char *rule, const config_entry &entry) {
    const decision_change made = compare_decisions(before, after, {&of_before, &of_after});
    EXPECT_EQ(made.cause, (change_cause{side, rule, entry}));
}

TEST(changes, the_cause_in_a_control_file_has_its_place_on_its_side) {
    const decision_record helo = decided(verdict::reject, decided_by::rule, "require_helo");
    decision_record off = accepted;
    rule_of(off, "require_helo").decision = outcome::not_enabled;
    expect_placed_cause(off, helo, config_side::after, "require_helo",
                        {rules_enabled, 7, "require_helo"});
    expect_placed_cause(helo, off, config_side::before, "require_helo",
                        {rules_enabled, 4, "require_helo"});
    decision_record mapped = decided(verdict::reject, decided_by::block_map, "block_lists");
    mapped.block_maps.push_back({"bots.bms", outcome::hit, "10.11.0.0/16", 2, false});
    expect_placed_cause(accepted, mapped, config_side::after, "block_lists",
                        {maps_enabled, 3, "bots.bms"});
    expect_placed_cause(mapped, accepted, config_side::before, "block_lists",
                        {maps_enabled, 0, "bots.bms"}); // edited meanwhile, say
    decision_record listed = decided(verdict::reject, decided_by::rbl, "block_rbl_lists");
    listed.decision.zone = "rbl.example";
    expect_placed_cause(accepted, listed, config_side::after, "block_rbl_lists",
                        {zones_enabled, 2, "rbl.example"});
    expect_placed_cause(accepted, blacklisted, config_side::after, "from_blacklist",
                        {blacklist, 7, "*@victim.example"}); // the record's own
}

// A record that lacks the answers of these DNS block lists.
decision_record without_answers(std::initializer_list<const char *> zones) {
    decision_record made = decided(verdict::undecided, decided_by::missing);
    rule_of(made, "block_rbl_lists").decision = outcome::undecided;
    for (const char *zone : zones) {
        made.dns_block_lists.push_back({zone, outcome::undecided, {}, {}, {}});
    }
    return made;
}

TEST(changes, one_block_list_that_is_not_answered_for_is_the_cause) {
    decision_record answered = accepted;
    answered.dns_block_lists.push_back({"rbl.example", outcome::no_hit, {}, {}, {}});
    const config_entry zone = {zones_enabled, 2, "rbl.example"};
    for (const decision_record &other : {accepted, answered}) {
        expect_placed_cause(other, without_answers({"rbl.example"}), config_side::after,
                            "block_rbl_lists", zone);
        expect_placed_cause(without_answers({"b.example"}), other, config_side::before,
                            "block_rbl_lists", {zones_enabled, 1, "b.example"});
    }
    // Of several it is not told which.
    expect_placed_cause(accepted, without_answers({"b.example", "rbl.example"}), config_side::after,
                        "block_rbl_lists", {});
    // Another rule lacked something first.
    decision_record earlier = without_answers({"rbl.example"});
    rule_of(earlier, "require_helo").decision = outcome::undecided;
    expect_placed_cause(accepted, earlier, config_side::after, "require_helo", {});
}

// --- the line ---

TEST(changes, the_line_tells_both_sides) {
    std::string line;
    append_change(line, compare_decisions(accepted, blacklisted));
    EXPECT_EQ(line,
              R"({"schema":"quillfence.change/1","id":"7","transaction":{"stage":"RCPT",)"
              R"("ip":"192.0.2.1","sender":"A@Victim.example"},)"
              R"("before":{"verdict":"accept","by":"nothing"},)"
              R"("after":{"verdict":"reject","by":"rule","rule":"from_blacklist",)"
              R"("source":{"file":"c:/quillfence/from_blacklist","line":7,)"
              R"("entry":"*@victim.example","how":"wildcard"}},)"
              R"("cause":{"side":"after","rule":"from_blacklist",)"
              R"("file":"c:/quillfence/from_blacklist","place":7,"entry":"*@victim.example"}})"
              "\n");
}

TEST(changes, bytes_that_are_no_text_are_shown_twice) {
    decision_record odd = blacklisted;
    odd.transaction.sender = "\xFF@victim.example";
    std::string line;
    append_change(line, compare_decisions(accepted, odd));
    EXPECT_EQ(line.find('\xFF'), std::string::npos);
    line.clear();
    append_change(line, compare_decisions(odd, accepted));
    EXPECT_NE(line.find(R"("sender":")"
                        "\xEF\xBF\xBD"
                        R"(@victim.example","sender_bytes":"ff40)"),
              std::string::npos)
        << line;
}

// --- the sums ---

TEST(change_tally, counts_verdicts_rules_and_whom_it_concerns) {
    change_tally tally;
    for (int i = 0; i < 5; ++i) {
        decision_record after = blacklisted;
        after.id = std::to_string(i);
        decision_record before = accepted;
        before.id = after.id;
        tally.add(compare_decisions(before, after));
    }
    tally.add(compare_decisions(accepted, accepted));
    EXPECT_EQ(tally.transactions(), 6u);
    EXPECT_EQ(tally.changes(), 5u);
    EXPECT_EQ(tally.verdicts()[0], (change_tally::verdict_row{1, 5, 0}));
    EXPECT_EQ(tally.changed_verdicts()[0], (change_tally::verdict_row{0, 5, 0}));
    ASSERT_EQ(tally.rules().size(), 1u);
    EXPECT_EQ(tally.rules().begin()->first, (std::pair<std::string, std::string>{
                                                "accept by nothing", "reject by from_blacklist"}));
    const auto causes = tally.causes().most_frequent(10);
    ASSERT_EQ(causes.size(), 1u);
    EXPECT_EQ(causes[0].second->count, 5u);
    ASSERT_EQ(causes[0].second->examples.size(), change_tally::most_examples);
    EXPECT_EQ(causes[0].second->examples[2],
              (change_example{"2", "192.0.2.1", "A@Victim.example", ""}));
    EXPECT_EQ(tally.clients().most_frequent(1)[0].first, "192.0.2.1");
    EXPECT_EQ(tally.senders().most_frequent(1)[0].first, "a@victim.example");
    EXPECT_EQ(tally.domains().most_frequent(1)[0].first, "victim.example");
    EXPECT_TRUE(tally.is_hit(blacklist, "*@victim.example"));
    EXPECT_FALSE(tally.is_hit(blacklist, "*@other.example"));
}

TEST(change_tally, what_was_missing_is_counted_once_a_transaction) {
    decision_record before = decided(verdict::undecided, decided_by::missing);
    before.missing = {{"dns", "a.", "A", ""}, {"dns", "b.", "A", ""}, {"fact", "", "", "helo"}};
    decision_record after = blacklisted;
    after.missing = {{"dns", "a.", "A", ""}};
    change_tally tally;
    tally.add(compare_decisions(before, after));
    tally.add(compare_decisions(after, after));
    EXPECT_EQ(tally.missing(), (std::map<std::string, uint64_t>{{"A answers", 2}, {"helo", 1}}));
    EXPECT_EQ(tally.decided_without(), 1u);
}

TEST(top_table, keeps_within_its_bytes_and_says_how_much_it_may_be_wrong) {
    constexpr size_t bytes = 100'000;
    top_table table(bytes);
    constexpr int rounds = 20'000;
    for (int i = 0; i < rounds; ++i) {
        table.count("often");
        table.count("rare " + std::to_string(i));
    }
    EXPECT_LT(table.size(), bytes / sizeof(top_row));
    const auto most = table.most_frequent(2);
    ASSERT_EQ(most.size(), 2u);
    EXPECT_EQ(most[0].first, "often");
    EXPECT_EQ(most[0].second->count, uint64_t{rounds});
    EXPECT_EQ(most[1].second->count, 1u);
    EXPECT_GT(table.error(), 0u);
}

TEST(top_table, a_count_is_never_too_large_and_within_the_error) {
    top_table table(20'000);
    std::map<std::string, uint64_t> exact;
    uint32_t random = 1;
    for (int i = 0; i < 30'000; ++i) {
        random = random * 1664525 + 1013904223;
        const std::string key = std::to_string((random >> 16) % (1 + (random >> 24)));
        ++exact[key];
        table.count(key);
    }
    ASSERT_GT(table.error(), 0u);
    for (const auto &[key, row] : table.most_frequent(1000)) {
        EXPECT_LE(row->count, exact[key]) << key;
        EXPECT_GE(row->count + table.error(), exact[key]) << key;
    }
}

TEST(top_table, a_long_key_is_cut) {
    top_table table;
    table.count(std::string(5000, 'x'));
    table.count(std::string(4000, 'x'));
    ASSERT_EQ(table.size(), 1u);
    EXPECT_EQ(table.most_frequent(1)[0].first.size(), top_table::longest_key);
}

} // namespace
} // namespace quillfence::testing
