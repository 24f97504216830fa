// The report flavour of the check runner.
#include <string>
#include <vector>

#include "check_lists.h"
#include "drive_c.h"
#include "quillfence-checks.h"
#include "step_budget.h"

namespace quillfence::testing {

namespace {

using report_test = drive_test;

// A block map that lists all of these first octets.
std::string map_listing(std::initializer_list<unsigned char> first_octets) {
    std::string bytes(1024, '\0');
    for (const unsigned char octet : first_octets) {
        bytes.replace(octet * 4u, 4, "\xFF\xFF\xFF\xFF");
    }
    return bytes;
}

// A list head that any success must replace and any failure must leave alone.
struct untouched_hits {
    vc_list_entry mark = {};
    vc_list_entry *head = &mark;
    bool untouched() const {
        return head == &mark;
    }
};

int calls;
uint8_t counting_hit(smtp_state *) {
    ++calls;
    return 1;
}

constexpr char maps_file[] = "c:/quillfence/bms/lists_to_update";
constexpr char other_maps_file[] = "c:/quillfence/bms/control/lists_to_update";

} // namespace

// --- run_all_spam_checks ---

TEST_F(report_test, reportable_names_match_exactly) {
    EXPECT_TRUE(is_reportable_rule("require_helo"));
    for (const char *name :
         {"", "require_hel", "require_helo ", "Require_helo", "block_all_mail", "no_rule_at_all"}) {
        EXPECT_FALSE(is_reportable_rule(name)) << name;
    }
}

TEST_F(report_test, hits_come_in_table_order_and_only_reportable_ones) {
    rule_list rules;
    rules.add("local_require_auth", always_hits);
    rules.add("ip_whitelist", always_hits);
    rules.add("require_helo", always_hits);
    rules.add("valid_ptr", never_hits);
    rules.add("from_blacklist", always_hits);
    rules.add("block_lists", nullptr);
    rules.add("valid_helo_domain", nullptr); // no check: never hits
    rules.add("block_ip_in_addr", always_hits);
    session state(client_ip);
    vc_list_entry *hits = nullptr;
    ASSERT_EQ(run_all_spam_checks(state, rules.head, &hits), 1);
    EXPECT_EQ(taken(&hits), (lines{"local_require_auth", "require_helo", "block_ip_in_addr"}));
    EXPECT_EQ(state->hit_name, nullptr);
    EXPECT_EQ(state->rejection_notice, nullptr);
}

uint64_t steps_seen;
uint8_t spends_all(smtp_state *) {
    steps_seen = 0;
    while (!steps_are_spent()) {
        const uint32_t taken = steps_to_take(1'000'000);
        take_steps(taken);
        steps_seen += taken;
    }
    return 1;
}

// Lookups in pattern files take their steps from it.
TEST_F(report_test, a_run_has_200_million_matcher_steps) {
    rule_list rules;
    rules.add("valid_ptr", spends_all);
    session state(client_ip);
    for (int run = 0; run < 2; ++run) {
        vc_list_entry *hits = nullptr;
        ASSERT_EQ(run_all_spam_checks(state, rules.head, &hits), 1);
        taken(&hits);
        EXPECT_EQ(steps_seen, 200'000'000u);
        EXPECT_FALSE(steps_are_spent()) << "the run is over";
    }
    const step_scope given(5'000'000);
    vc_list_entry *hits = nullptr;
    ASSERT_EQ(run_all_spam_checks(state, rules.head, &hits), 1);
    taken(&hits);
    EXPECT_EQ(steps_seen, 5'000'000u) << "a caller's own budget goes on";
}

TEST_F(report_test, a_hit_is_a_copy_with_its_nul) {
    rule_list rules;
    rules.add("require_helo", always_hits);
    session state(client_ip);
    vc_list_entry *hits = nullptr;
    ASSERT_EQ(run_all_spam_checks(state, rules.head, &hits), 1);
    ASSERT_NE(hits, nullptr);
    EXPECT_EQ(hits->size, strlen("require_helo") + 1);
    EXPECT_NE(hits->data, static_cast<spam_rule *>(rules.head->data)->name);
    taken(&hits);
}

TEST_F(report_test, only_block_all_mail_is_not_run) {
    rule_list rules;
    rules.add("block_all_mail", counting_hit);
    rules.add("from_whitelist", counting_hit);
    rules.add("country_blacklist", counting_hit);
    rules.add("block_all_mail_", counting_hit);
    session state(client_ip);
    vc_list_entry *hits = nullptr;
    calls = 0;
    ASSERT_EQ(run_all_spam_checks(state, rules.head, &hits), 1);
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(taken(&hits), lines{});
}

TEST_F(report_test, elements_without_a_rule_or_a_name_are_passed_over) {
    rule_list rules;
    rules.add("x", counting_hit)->name[0] = '\0';
    spam_rule *nameless = rules.add("x", counting_hit);
    free(nameless->name);
    nameless->name = nullptr;
    rules.add("require_helo", always_hits);
    rules.add("require_helo", always_hits);
    rules.drop_last_data();
    rules.add("valid_ptr", always_hits);
    session state(client_ip);
    vc_list_entry *hits = nullptr;
    calls = 0;
    ASSERT_EQ(run_all_spam_checks(state, rules.head, &hits), 1);
    EXPECT_EQ(taken(&hits), (lines{"require_helo", "valid_ptr"}));
    EXPECT_EQ(calls, 0) << "nothing of a rule without a name is run";
}

TEST_F(report_test, no_hits_are_an_empty_list) {
    rule_list rules;
    rules.add("require_helo", never_hits);
    session state(client_ip);
    untouched_hits hits;
    ASSERT_EQ(run_all_spam_checks(state, rules.head, &hits.head), 1);
    EXPECT_EQ(hits.head, nullptr);
}

TEST_F(report_test, missing_arguments_of_the_spam_checks) {
    rule_list rules;
    rules.add("require_helo", always_hits);
    session state(client_ip);
    untouched_hits hits;
    EXPECT_EQ(run_all_spam_checks(nullptr, rules.head, &hits.head), 0);
    EXPECT_EQ(log.errors(), lines{"run_all_spam_checks: Invalid argument"});
    EXPECT_EQ(run_all_spam_checks(state, nullptr, &hits.head), 0);
    EXPECT_EQ(log.errors(), lines{"run_all_spam_checks: Invalid argument"});
    EXPECT_EQ(run_all_spam_checks(state, rules.head, nullptr), 0);
    EXPECT_EQ(log.errors(), lines{"run_all_spam_checks: Invalid argument"});
    EXPECT_TRUE(hits.untouched());
}

// --- run_all_bms_checks ---

TEST_F(report_test, all_maps_that_list_the_address_in_list_order) {
    drive.write(maps_file, "b\nmissing\na\nc");
    drive.write("c:/quillfence/bms/a", map_listing({10}));
    drive.write("c:/quillfence/bms/b", map_listing({10, 192}));
    drive.write("c:/quillfence/bms/c", map_listing({11}));
    rule_list rules;
    rules.add("require_helo", nullptr);
    rules.add("block_lists", nullptr, 0, 1, 0, 0);
    static const struct {
        const char *ip;
        lines want;
    } cases[] = {
        {"10.1.2.3", {"b", "a"}}, {"192.0.2.1", {"b"}}, {"11.0.0.1", {"c"}}, {"12.0.0.1", {}}};
    for (const auto &c : cases) {
        session state(c.ip);
        untouched_hits hits;
        ASSERT_EQ(run_all_bms_checks(state, rules.head, &hits.head), 1) << c.ip;
        EXPECT_EQ(taken(&hits.head), c.want) << c.ip;
        EXPECT_EQ(state->hit_name, nullptr);
    }
}

TEST_F(report_test, the_other_list_of_maps_is_the_second_choice) {
    drive.write(other_maps_file, "a\n");
    drive.write("c:/quillfence/bms/a", map_listing({10}));
    drive.write("c:/quillfence/bms/b", map_listing({10}));
    rule_list rules;
    rules.add("block_lists", nullptr);
    session state(client_ip);
    vc_list_entry *hits = nullptr;
    ASSERT_EQ(run_all_bms_checks(state, rules.head, &hits), 1);
    EXPECT_EQ(taken(&hits), lines{"a"});

    drive.write(maps_file, ""); // empty: as if it were not there
    ASSERT_EQ(run_all_bms_checks(state, rules.head, &hits), 1);
    EXPECT_EQ(taken(&hits), lines{"a"});

    drive.write(maps_file, "b\n");
    ASSERT_EQ(run_all_bms_checks(state, rules.head, &hits), 1);
    EXPECT_EQ(taken(&hits), lines{"b"});
}

TEST_F(report_test, without_a_list_of_maps_the_check_fails) {
    rule_list rules;
    rules.add("block_lists", nullptr);
    session state(client_ip);
    untouched_hits hits;
    EXPECT_EQ(run_all_bms_checks(state, rules.head, &hits.head), 0);
    EXPECT_EQ(log.errors(), lines{"run_all_bms_checks: Failed to load list of BMS"});
    drive.write(maps_file, "");
    drive.write(other_maps_file, "");
    EXPECT_EQ(run_all_bms_checks(state, rules.head, &hits.head), 0);
    EXPECT_EQ(log.errors(), lines{"run_all_bms_checks: Failed to load list of BMS"});
    EXPECT_TRUE(hits.untouched());
}

TEST_F(report_test, without_the_rule_the_check_fails) {
    drive.write(maps_file, "a");
    rule_list rules;
    rules.add("block_rbl_lists", nullptr);
    session state(client_ip);
    untouched_hits hits;
    EXPECT_EQ(run_all_bms_checks(state, rules.head, &hits.head), 0);
    EXPECT_EQ(log.errors(), lines{"run_all_bms_checks: Missing block lists rule"});
    EXPECT_TRUE(hits.untouched());
}

TEST_F(report_test, missing_arguments_of_the_block_map_checks) {
    rule_list rules;
    rules.add("block_lists", nullptr);
    session state(client_ip);
    session no_ip(nullptr);
    untouched_hits hits;
    const struct {
        smtp_state *state;
        vc_list_entry *rules;
        vc_list_entry **hits;
    } cases[] = {{nullptr, rules.head, &hits.head},
                 {state, nullptr, &hits.head},
                 {state, rules.head, nullptr},
                 {no_ip, rules.head, &hits.head}};
    for (const auto &c : cases) {
        EXPECT_EQ(run_all_bms_checks(c.state, c.rules, c.hits), 0);
        EXPECT_EQ(log.errors(), lines{"run_all_bms_checks: Invalid argument"});
    }
    EXPECT_TRUE(hits.untouched());
}

// No list of maps is there: a session that is skipped succeeds because it reads nothing.
TEST_F(report_test, skipped_sessions_have_no_hits_and_read_nothing) {
    rule_list rules;
    rules.add("block_lists", nullptr, 0, 1, 0, 0);
    static const struct {
        const char *name;
        uint8_t smtp_state::*flag;
        bool skipped;
    } cases[] = {{"local", &smtp_state::localhost, true},
                 {"IPv6", &smtp_state::ipv6, true},
                 {"MUA", &smtp_state::mua, true},
                 {"NDR", &smtp_state::ndr, false}};
    for (const auto &c : cases) {
        session state(client_ip);
        state->*c.flag = 1;
        untouched_hits hits;
        EXPECT_EQ(run_all_bms_checks(state, rules.head, &hits.head), c.skipped) << c.name;
        if (c.skipped) {
            EXPECT_EQ(hits.head, nullptr) << c.name;
        } else {
            EXPECT_EQ(log.errors(), lines{"run_all_bms_checks: Failed to load list of BMS"});
        }
    }
}

// The same for each of the 16 switch settings of the rule and the 16 kinds of session.
TEST_F(report_test, the_rules_switches_decide_who_is_skipped) {
    static constexpr uint8_t smtp_state::*flags[] = {&smtp_state::mua, &smtp_state::ndr,
                                                     &smtp_state::localhost, &smtp_state::ipv6};
    for (unsigned switches = 0; switches < 16; ++switches) {
        rule_list rules;
        rules.add("block_lists", nullptr, switches & 1, switches >> 1 & 1, switches >> 2 & 1,
                  switches >> 3 & 1);
        for (unsigned kind = 0; kind < 16; ++kind) {
            session state(client_ip);
            for (unsigned bit = 0; bit < 4; ++bit) {
                state->*flags[bit] = kind >> bit & 1;
            }
            const bool skipped = kind & ~switches;
            untouched_hits hits;
            EXPECT_EQ(run_all_bms_checks(state, rules.head, &hits.head), skipped)
                << "switches " << switches << ", kind " << kind;
            EXPECT_EQ(hits.untouched(), !skipped);
            EXPECT_EQ(log.errors(),
                      skipped ? lines{} : lines{"run_all_bms_checks: Failed to load list of BMS"});
        }
    }
}

TEST_F(report_test, an_address_that_no_map_can_hold_has_no_hits) {
    drive.write(maps_file, "a");
    drive.write("c:/quillfence/bms/a", map_listing({10}));
    rule_list rules;
    rules.add("block_lists", nullptr);
    session state("garbage");
    untouched_hits hits;
    EXPECT_EQ(run_all_bms_checks(state, rules.head, &hits.head), 1);
    EXPECT_EQ(hits.head, nullptr);
    EXPECT_EQ(log.errors(), lines{"lookupMaps: Invalid argument : invalid ip address"});
}

} // namespace quillfence::testing
