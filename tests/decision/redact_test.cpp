// Cases that are handed on without their people, and those that can't be.
#include "redact.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "expanded.h"
#include "explaining.h"
#include "me_address_map.h"
#include "platform/dns.h"
#include "random_world.h"
#include "record_words.h"

namespace quillfence::testing {
namespace {

test_case captured(const transaction &what, explain_options options) {
    options.capture = true;
    explain_result result = explain(what, options);
    EXPECT_EQ(result.failed, nullptr);
    return captured_case(std::move(result.record), std::move(result.server));
}

std::string written(const test_case &which) {
    std::string text;
    write_case(text, which);
    return text;
}

test_case read_again(const test_case &which) {
    json_problem problem;
    std::optional<test_case> read = read_case(written(which), &problem);
    EXPECT_TRUE(read) << problem.line << ": " << problem.text;
    return read ? std::move(*read) : test_case();
}

// What a decision is, told without the module's own comparison.
std::string told(const decision_record &of) {
    std::string text{word(of.decision.is)};
    text += ' ' + std::string(word(of.decision.by)) + ' ' + of.decision.rule + ' ' +
            of.decision.where + ' ' + of.decision.zone;
    for (const rule_record &rule : of.rules) {
        text += '\n' + rule.rule + ' ' + std::string(word(rule.decision)) + ' ' +
                std::string(rule.report ? word(*rule.report) : "-");
    }
    for (const auto *list : {&of.report->spam_hits, &of.report->bms_hits, &of.decision.maps}) {
        text += '\n';
        for (const std::string &name : *list) {
            text += name + ' ';
        }
    }
    return text;
}

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// Whether a text stands in the document, whatever its letter case, as a JSON text has it.
bool stands_in(const std::string &document, const std::string &text) {
    std::string json;
    json_writer writer(json, json_layout::one_line);
    writer.text(text);
    writer.finish();
    return lower(document).find(lower(json.substr(1, json.size() - 2))) != std::string::npos;
}

// --- at random ---

class random_redactions : public logged_test {
  protected:
    random_redactions() {
        quillfence_init();
    }
    ~random_redactions() override {
        quillfence_teardown();
        forget_address_map();
        log.take();
    }
    size_t below(size_t count) {
        return std::uniform_int_distribution<size_t>(0, count - 1)(random);
    }
    // At times somebody whom no list knows, with a name of every kind.
    void rename(std::optional<std::string> *who) {
        static const std::string people[] = {"\"Bo b\"",
                                             "m\xc3\xbcller.\xe6\x9d\x8e",
                                             "r\xff\xfet",
                                             "bounce+bobby=sub.bad.example",
                                             "SRS0=ab7=xy=here.example=bobby",
                                             "Bobby.Tables+news",
                                             "info",
                                             "mail",
                                             "x9"};
        if (who->has_value() && !(*who)->empty() && below(2)) {
            *who = people[below(std::size(people))] + (*who)->substr((*who)->rfind('@'));
        }
    }

    drive_c drive;
    test_registry registry;
    random_numbers random{20261122};
};

// None of the names above that can't be a word of ours, nor an address, is to be found by plain
// search; the raw bytes stand in hexadecimal.
void expect_nobody_in(const std::string &document, const transaction &what) {
    for (const char *name :
         {"Bo b", "m\xc3\xbcller", "\xe6\x9d\x8e", "bobby", "tables", "72fffe74"}) {
        EXPECT_FALSE(stands_in(document, name)) << name;
    }
    for (const auto &address : {what.sender, what.recipient}) {
        if (address && address->find('@') != std::string::npos &&
            address->find("@[") == std::string::npos) {
            EXPECT_FALSE(stands_in(document, '"' + *address)) << *address;
            EXPECT_FALSE(stands_in(document, *address + '"')) << *address;
        }
    }
}

TEST_F(random_redactions, keep_every_outcome_or_are_refused) {
    const redaction how{.key = pseudonym_key};
    const redaction with_domains{.key = pseudonym_key, .domains = true};
    unsigned made = 0;
    unsigned without_domains = 0;
    std::set<std::string> reasons;
    for (int i = 0; i < 200; ++i) {
        const world now = random_world(random);
        dns_script dns;
        script_world(now, &dns);
        write_world(now, drive, registry);
        transaction what = random_transaction(random);
        rename(&what.sender);
        rename(&what.recipient);
        const test_case which = captured(what, {});
        const bool domains = i % 4 == 3;
        const redact_result result = redact(which, domains ? with_domains : how, {});
        log.take();
        if (!result.refused.empty()) {
            reasons.insert(result.refused);
            EXPECT_EQ(result.made, test_case()) << "nothing is handed out";
            continue;
        }
        ++made;
        without_domains += domains;
        const std::string text = written(result.made);
        expect_nobody_in(text, what);
        if (domains) {
            for (const char *domain :
                 {"good.example", "bad.example", "here.example", "pool.example"}) {
                EXPECT_FALSE(stands_in(text, domain)) << domain;
            }
        }
        EXPECT_EQ(told(result.made.record), told(which.record));
        EXPECT_EQ(told(replay(read_again(result.made), {}).record), told(replay(which, {}).record));
        log.take();
        EXPECT_EQ(result.made.record.transaction.ip, which.record.transaction.ip);
        EXPECT_EQ(written(redact(which, domains ? with_domains : how, {}).made), text);
        log.take();
        if (HasFailure()) {
            ADD_FAILURE() << "case " << i << ":\n" << written(which) << text;
            return;
        }
    }
    EXPECT_GT(made, 120u);
    EXPECT_GT(without_domains, 15u);
    EXPECT_GT(200 - made, 20u) << "many a list names an address";
    for (const std::string &reason : reasons) {
        EXPECT_TRUE(reason.find(" changes: ") != std::string::npos ||
                    reason.find(" still holds ") != std::string::npos)
            << reason;
    }
}

// --- one by one ---

class redactions : public explain_test {
  protected:
    redactions() {
        drive.remove("c:/quillfence/from_blacklist");
        drive.remove("c:/quillfence/from_whitelist");
        drive.remove("c:/quillfence/exempt_users");
        drive.write("c:/quillfence/control/rules.enabled", "from_blacklist\n");
    }
    test_case case_of(const std::string &sender, const std::string &recipient) {
        transaction what = transaction_of(clients[0]);
        what.sender = sender;
        what.recipient = recipient;
        return captured(what, options);
    }
    static redact_result redacted(const test_case &which, bool domains = false) {
        return redact(which, {.key = pseudonym_key, .domains = domains}, {});
    }
};

TEST_F(redactions, an_entry_that_names_the_address_decides) {
    drive.write("c:/quillfence/from_blacklist", "bob@spam.example\n");
    const redact_result result = redacted(case_of("bob@spam.example", "al@here.example"));
    EXPECT_TRUE(result.refused.starts_with(
        "the outcome of from_blacklist changes: hit -> no_hit; an entry of the configuration names "
        "the address itself"))
        << result.refused;
    EXPECT_EQ(result.made, test_case());
}

TEST_F(redactions, an_entry_for_the_domain_decides) {
    drive.write("c:/quillfence/from_blacklist", "*@spam.example\n");
    const test_case which = case_of("Bob@spam.example", "al@here.example");
    const redact_result result = redacted(which);
    EXPECT_EQ(result.refused, "");
    const decision_record &made = result.made.record;
    EXPECT_EQ(*made.transaction.sender, expanded("<Bob>@spam.example"));
    EXPECT_EQ(*made.transaction.recipient, expanded("<al>@here.example"));
    EXPECT_EQ(rule_of(made, "from_blacklist").value, expanded("<Bob>@spam.example"));
    EXPECT_EQ(rule_of(made, "from_blacklist").from, rule_of(which.record, "from_blacklist").from);
    EXPECT_EQ(made.decision.is, verdict::reject);
    EXPECT_FALSE(stands_in(written(result.made), "bob"));
    // With domains the entry does not match any more.
    EXPECT_TRUE(redacted(which, true)
                    .refused.starts_with("the outcome of from_blacklist changes: hit -> no_hit"));
}

TEST_F(redactions, one_person_is_one_pseudonym_in_all_cases) {
    const redact_result one = redacted(case_of("bob@one.example", "al@here.example"));
    const redact_result two = redacted(case_of("eve@two.example", "Bob@here.example"));
    ASSERT_EQ(one.refused + two.refused, "");
    const std::string sender = *one.made.record.transaction.sender;
    const std::string recipient = *two.made.record.transaction.recipient;
    EXPECT_EQ(lower(recipient.substr(0, 3)), sender.substr(0, 3));
    const redact_result other =
        redact(case_of("bob@one.example", "al@here.example"), {.key = "another key of 16"}, {});
    EXPECT_NE(*other.made.record.transaction.sender, sender);
}

// Words of the program's own sentences are nobody's name, whoever is called like them.
TEST_F(redactions, people_whose_names_are_words_of_ours) {
    for (const char *name : {"sender", "the", "mail", "info", "client", "list", "quillfence",
                             "from_blacklist", "hit", "ptr", "control", "rules"}) {
        drive.write("c:/quillfence/from_blacklist", "*@spam.example\n");
        const test_case which = case_of(std::string(name) + "@spam.example", "al@here.example");
        const redact_result result = redacted(which);
        ASSERT_EQ(result.refused, "") << name;
        EXPECT_EQ(rule_of(result.made.record, "from_blacklist").reason,
                  rule_of(which.record, "from_blacklist").reason);
        EXPECT_FALSE(stands_in(written(result.made), std::string(name) + '@')) << name;
    }
}

TEST_F(redactions, what_somebody_wrote_beside_it) {
    drive.write("c:/quillfence/from_blacklist", "*@spam.example\n");
    test_case which = case_of("bobby@spam.example", "al@here.example");
    which.description = "why was bobby (bobby@spam.example) refused?";
    which.record.extra = {{"log", "\"from=<bobby@spam.example> Bobby\""}};
    const redact_result result = redacted(which);
    ASSERT_EQ(result.refused, "");
    EXPECT_EQ(result.made.description, expanded("why was <bobby> (<bobby>@spam.example) refused?"));
    EXPECT_FALSE(stands_in(written(result.made), "bobby"));
}

TEST_F(redactions, a_place_that_would_still_hold_a_name) {
    drive.write("c:/quillfence/from_blacklist", "*@spam.example\n");
    test_case which = case_of("bobby@spam.example", "al@here.example");
    which.server.folders = {{"c:/Bobby Smith/Whitelist", {}, true}};
    EXPECT_TRUE(redacted(which).refused.starts_with(
        "folders[0].folder still holds a name of the original case; "))
        << redacted(which).refused;
}

TEST_F(redactions, an_expectation_that_was_met_stays_met) {
    drive.write("c:/quillfence/from_blacklist", "bob@spam.example\n*@spam.example\n");
    drive.write("c:/quillfence/control/spam.notice", "");
    test_case which = case_of("bob@spam.example", "al@here.example");
    which.expect.rule = {"from_blacklist"};
    which.expect.entry = {"bob@spam.example"};
    EXPECT_TRUE(redacted(which).refused.starts_with("expect.entry is not met any more"))
        << redacted(which).refused;
    which.expect.entry = {"bob@spam.example", "*@spam.example"};
    EXPECT_EQ(redacted(which).refused, "");
    // One that was not met need not be.
    which.expect.entry = {"eve@spam.example"};
    EXPECT_EQ(redacted(which).refused, "");
}

TEST_F(redactions, a_case_by_hand) {
    test_case which;
    which.description = "written by bobby";
    which.record.transaction = transaction_of(clients[0]);
    which.record.transaction.sender = "bobby@spam.example";
    which.zonedata = std::vector<zone_name>{{"spam.example", {{"MX", "10 mail.spam.example"}}}};
    const redact_result result = redacted(which);
    ASSERT_EQ(result.refused, "");
    EXPECT_FALSE(result.made.captured);
    EXPECT_EQ(*result.made.record.transaction.sender, expanded("<bobby>@spam.example"));
    EXPECT_EQ(result.made.description, expanded("written by <bobby>"));
    EXPECT_EQ(result.made.zonedata, which.zonedata);
}

// Somebody is called like somebody else's pseudonym: which of them is left could not be told.
TEST_F(redactions, a_pseudonym_that_is_a_name) {
    test_case which = case_of("ab@one.example", "al@here.example");
    pseudonyms names(pseudonym_key);
    which.description = names.of("ab") + "@one.example";
    EXPECT_TRUE(redacted(which).refused.starts_with(
        "transaction.sender still holds a mail address of the original case; "))
        << redacted(which).refused;
    EXPECT_EQ(redact(which, {.key = "another key of 16"}, {}).refused, "");
}

// Two members of one name can't be read again.
TEST_F(redactions, two_members_that_become_one) {
    test_case which = case_of("ab@one.example", "al@here.example");
    which.record.extra = {{"x", "1"}, {"x", "2"}};
    EXPECT_TRUE(redacted(which).refused.starts_with("the redacted case could not be read again: "))
        << redacted(which).refused;
}

TEST_F(redactions, a_case_that_can_t_be_decided) {
    test_case which = case_of("bob@one.example", "al@here.example");
    which.record.config.user_dir = "\\\\elsewhere\\share";
    const redact_result result = redacted(which);
    EXPECT_TRUE(result.refused.starts_with("the case can't be decided: ")) << result.refused;
    EXPECT_EQ(result.made, test_case());
}

TEST_F(redactions, a_case_without_people_is_the_same) {
    drive.write("c:/quillfence/from_blacklist", "*@spam.example\n");
    const test_case which = case_of("", "");
    const redact_result result = redacted(which);
    EXPECT_EQ(result.refused, "");
    EXPECT_EQ(result.made, which);
    EXPECT_EQ(result.pseudonyms, 0u);
}

TEST_F(redactions, redacted_twice_it_decides_as_before) {
    drive.write("c:/quillfence/from_blacklist", "*@spam.example\n");
    const test_case which = case_of("bob@spam.example", "al@here.example");
    const redact_result once = redacted(which);
    const redact_result twice = redacted(once.made);
    ASSERT_EQ(once.refused + twice.refused, "");
    EXPECT_NE(written(twice.made), written(once.made));
    EXPECT_EQ(told(twice.made.record), told(which.record));
}

// --- comparing ---

TEST(first_change, of_two_decisions) {
    decision_record before;
    before.decision = {.is = verdict::reject,
                       .by = decided_by::rule,
                       .rule = "a",
                       .where = "",
                       .maps = {},
                       .zone = "",
                       .hit_name = "",
                       .notice = "one"};
    before.report = report{"", {"x"}, {}};
    before.rules.resize(2);
    before.rules[0].rule = "a";
    before.rules[1].rule = "b";
    before.rules[1].report = outcome::hit;
    before.block_maps.resize(1);
    before.block_maps[0].map = "bots.bms";
    before.dns_block_lists.resize(1);
    before.dns_block_lists[0].zone = "zen.example.org";
    const struct {
        void (*change)(decision_record &);
        const char *want;
    } cases[] = {
        {[](decision_record &) {}, ""},
        {[](decision_record &r) { r.decision.notice = "two"; }, ""},
        {[](decision_record &r) { r.rules[0].reason = "other"; }, ""},
        {[](decision_record &r) {
             r.rules[0].decision = outcome::hit;
             r.decision.is = verdict::accept;
         },
         "the outcome of a changes: not_reached -> hit"},
        {[](decision_record &r) { r.rules[1].report = outcome::no_hit; },
         "the report's outcome of b changes: hit -> no_hit"},
        {[](decision_record &r) { r.rules[1].report.reset(); },
         "the report's outcome of b changes: hit -> (none)"},
        {[](decision_record &r) { r.rules[1].would = outcome::hit; },
         "what b would have done changes: (none) -> hit"},
        {[](decision_record &r) { r.rules.pop_back(); }, "the number of rules changes: 2 -> 1"},
        {[](decision_record &r) { r.block_maps[0].is = outcome::hit; },
         "the outcome of the block map bots.bms changes: no_hit -> hit"},
        {[](decision_record &r) { r.dns_block_lists[0].is = outcome::hit; },
         "the outcome of the DNS block list zen.example.org changes: no_hit -> hit"},
        {[](decision_record &r) { r.decision.is = verdict::accept; },
         "the verdict changes: reject -> accept"},
        {[](decision_record &r) { r.decision.by = decided_by::rbl; },
         "what decides changes: rule -> rbl"},
        {[](decision_record &r) { r.decision.rule = "b"; }, "the deciding rule changes: a -> b"},
        {[](decision_record &r) { r.decision.where = "user"; },
         "where the exemption stands changes: (none) -> user"},
        {[](decision_record &r) { r.decision.zone = "z"; },
         "the deciding zone changes: (none) -> z"},
        {[](decision_record &r) {
             r.decision.maps = {"m", "n"};
         },
         "the list of deciding maps changes: (none) -> m, n"},
        {[](decision_record &r) {
             r.report->spam_hits = {"x", "y"};
         },
         "the report's list of spam hits changes: x -> x, y"},
        {[](decision_record &r) { r.report->bms_hits = {"m"}; },
         "the report's list of block map hits changes: (none) -> m"},
        {[](decision_record &r) {
             r.report = report{"no memory", {}, {}};
         },
         "why the report fails changes: (none) -> no memory"},
        {[](decision_record &r) { r.report.reset(); },
         "the report's list of spam hits changes: x -> (none)"},
    };
    for (const auto &c : cases) {
        decision_record after = before;
        c.change(after);
        EXPECT_EQ(first_change(before, after), c.want);
    }
}

} // namespace
} // namespace quillfence::testing
