// The decision flavour of the check runner: its drivers, its files, its DEBUG lines, exemptions.
#include <cstring>
#include <string>
#include <vector>

#include "check_lists.h"
#include "dns_script.h"
#include "drive_c.h"
#include "expected_rules.h"
#include "heap_text.h"
#include "hook_table.h"
#include "quillfence-checks.h"
#include "running_engine.h"
#include "step_budget.h"

namespace quillfence::testing {

namespace {

class decision_test : public traced_drive_test {
  protected:
    void SetUp() override {
        set_hooks({.dns_option = 1});
        log.take();
    }
    // The runner's own lines among those captured, without the other modules'.
    lines own_lines() {
        lines own;
        for (const log_line &line : log.take()) {
            if (line.source == "quillfence-checks") {
                const char *kind = line.priority == 7 ? "D " : "E ";
                own.push_back(kind + line.function + ": " + line.message);
            }
        }
        return own;
    }
    static std::string hit(smtp_state *state) {
        return shown(state->hit_name) + " / " + shown(state->rejection_notice);
    }
};

std::vector<std::string> ran;
template <char letter>
uint8_t misses(smtp_state *) {
    ran.emplace_back(1, letter);
    return 0;
}
template <char letter>
uint8_t hits_as(smtp_state *) {
    ran.emplace_back(1, letter);
    return 1;
}

// A hit of such a rule can't have a notice.
void drop_rejection(spam_rule *rule) {
    free(rule->rejection);
    rule->rejection = nullptr;
}

// A block map that lists the addresses with this first octet.
std::string map_listing(unsigned char first_octet) {
    std::string bytes(1024, '\0');
    return bytes.replace(first_octet * 4u, 4, "\xFF\xFF\xFF\xFF");
}

} // namespace

// --- run_spam_checks_r ---

TEST_F(decision_test, a_walk_that_hits) {
    rule_list rules;
    rules.add("one", nullptr);
    rules.add("two", never_hits);
    rules.add("gone", never_hits);
    rules.drop_last_data();
    rules.add("three", always_hits, 1, 1, 1, 1, "no, %IP%");
    rules.add("four", always_hits);
    const name_list enabled({"four", "three", "one"});
    session state(client_ip);
    state->notice_flag = 1;
    log.take();
    EXPECT_EQ(run_spam_checks_r(state, enabled.head, rules.head), 1);
    EXPECT_EQ(own_lines(), (lines{
                               "D run_spam_checks_r: Checking rule [one]",
                               "D run_spam_checks_r: running rule [one]",
                               "D run_spam_checks_r: Checking rule [two]",
                               "D run_spam_checks_r: failed to find rule [two] on list",
                               "D run_spam_checks_r: NULL data on rule list",
                               "D run_spam_checks_r: Checking rule [three]",
                               "D run_spam_checks_r: running rule [three]",
                           }));
    EXPECT_EQ(hit(state), "three / no, 10.1.2.3");
    EXPECT_EQ(state->notice_flag, 0);
}

uint32_t steps_at_hand;
uint8_t takes_steps(smtp_state *) {
    take_steps(150'000'000);
    steps_at_hand = steps_to_take(UINT32_MAX);
    return 0;
}

TEST_F(decision_test, a_walk_has_200_million_matcher_steps) {
    rule_list rules;
    rules.add("one", takes_steps);
    const name_list enabled({"one"});
    session state(client_ip);
    for (int run = 0; run < 2; ++run) {
        EXPECT_EQ(run_spam_checks_r(state, enabled.head, rules.head), 1);
        EXPECT_EQ(steps_at_hand, 50'000'000u);
    }
    EXPECT_EQ(steps_to_take(UINT32_MAX), UINT32_MAX) << "none outside of a run";
}

TEST_F(decision_test, an_element_without_a_name_is_no_rule) {
    rule_list rules;
    spam_rule *nameless = rules.add("one", always_hits);
    free(nameless->name);
    nameless->name = nullptr;
    const name_list enabled({"one"});
    session state(client_ip);
    log.take();
    EXPECT_EQ(run_spam_checks_r(state, enabled.head, rules.head), 1);
    EXPECT_EQ(log.transcript(), (lines{
                                    "D run_spam_checks_r: NULL data on rule list",
                                    "D run_spam_checks_r: end of checks, returning true",
                                }));
    EXPECT_EQ(hit(state), "(none) / (none)");
}

TEST_F(decision_test, a_walk_that_does_not_hit) {
    rule_list rules;
    rules.add("one", never_hits);
    const name_list enabled({"one", "unknown"});
    session state(client_ip);
    state->notice_flag = 1;
    log.take();
    EXPECT_EQ(run_spam_checks_r(state, enabled.head, rules.head), 1);
    EXPECT_EQ(own_lines(), (lines{
                               "D run_spam_checks_r: Checking rule [one]",
                               "D run_spam_checks_r: running rule [one]",
                               "D run_spam_checks_r: end of checks, returning true",
                           }));
    EXPECT_EQ(hit(state), "(none) / (none)");
    EXPECT_EQ(state->notice_flag, 1);
}

TEST_F(decision_test, nothing_to_walk) {
    rule_list rules;
    rules.add("one", always_hits);
    const name_list enabled({"one"});
    session state(client_ip);
    log.take();
    static const lines want = {"D run_spam_checks_r: either rules was empty / NULL or rule "
                               "definition structure empty"};
    EXPECT_EQ(run_spam_checks_r(state, nullptr, rules.head), 1);
    EXPECT_EQ(own_lines(), want);
    EXPECT_EQ(run_spam_checks_r(state, enabled.head, nullptr), 1);
    EXPECT_EQ(own_lines(), want);
    EXPECT_EQ(run_spam_checks_r(nullptr, enabled.head, rules.head), 0);
    EXPECT_EQ(log.transcript(), lines{"E run_spam_checks_r: Invalid argument"});
    EXPECT_EQ(hit(state), "(none) / (none)");
}

TEST_F(decision_test, names_are_compared_whole_and_exactly) {
    rule_list rules;
    rules.add("rule", always_hits);
    for (const char *name : {"rul", "rule2", "Rule", "rule ", "rule\r", ""}) {
        const name_list enabled({name});
        session state(client_ip);
        EXPECT_EQ(run_spam_checks_r(state, enabled.head, rules.head), 1);
        EXPECT_EQ(hit(state), "(none) / (none)") << "[" << name << "]";
    }
}

TEST_F(decision_test, a_hit_replaces_an_earlier_one) {
    rule_list rules;
    rules.add("rule", always_hits);
    const name_list enabled({"rule"});
    session state(client_ip);
    session::put(&state->hit_name, "old");
    session::put(&state->rejection_notice, "old notice");
    EXPECT_EQ(run_spam_checks_r(state, enabled.head, rules.head), 1);
    EXPECT_EQ(hit(state), "rule / rejected");
}

TEST_F(decision_test, a_walk_without_a_hit_keeps_an_earlier_one) {
    rule_list rules;
    rules.add("rule", never_hits);
    const name_list enabled({"rule"});
    session state(client_ip);
    session::put(&state->hit_name, "old");
    session::put(&state->rejection_notice, "old notice");
    EXPECT_EQ(run_spam_checks_r(state, enabled.head, rules.head), 1);
    EXPECT_EQ(hit(state), "old / old notice");
}

TEST_F(decision_test, a_hit_without_a_notice_fails) {
    rule_list rules;
    rules.add("rule", always_hits);
    const name_list enabled({"rule"});
    session state(nullptr); // no ip: no notice
    EXPECT_EQ(run_spam_checks_r(state, enabled.head, rules.head), 0);
    EXPECT_EQ(hit(state), "rule / (none)");
    EXPECT_EQ(log.errors(), lines{"vc_str_replace: Invalid argument"});
}

namespace {
char *host_message(const char *rule_name, smtp_state *) {
    const std::string text = std::string("host's text for ") + rule_name + " at %IP%";
    return strdup(text.c_str());
}
} // namespace

TEST_F(decision_test, the_message_hook_supplies_the_notice) {
    set_hooks({.dns_option = 1, .message = host_message});
    rule_list rules;
    rules.add("rule", always_hits);
    const name_list enabled({"rule"});
    session state(client_ip);
    EXPECT_EQ(run_spam_checks_r(state, enabled.head, rules.head), 1);
    EXPECT_EQ(hit(state), "rule / host's text for rule at 10.1.2.3");
}

// Every rule of the table as the one that hits: name and notice of each.
TEST_F(decision_test, every_rules_hit_leaves_its_name_and_text) {
    for (const expected_rule &want : expected_rules) {
        rule_list rules;
        rules.add(want.name, always_hits, 1, 1, 1, 1, want.rejection);
        const name_list enabled({want.name});
        session state("192.0.2.1");
        session::put(&state->helo, "mx");
        session::put(&state->mail_from, "a@b.org");
        session::put(&state->rcpt_to, "c@d.net");
        std::string text = want.rejection;
        static const struct {
            const char *macro, *value;
        } values[] = {{"%IP%", "192.0.2.1"},
                      {"%RDNS%", "unknown"},
                      {"%HELO%", "mx"},
                      {"%FROM%", "a@b.org"},
                      {"%RCPT%", "c@d.net"}};
        for (const auto &value : values) {
            for (size_t at; (at = text.find(value.macro)) != std::string::npos;) {
                text.replace(at, strlen(value.macro), value.value);
            }
        }
        EXPECT_EQ(run_spam_checks_r(state, enabled.head, rules.head), 1);
        EXPECT_EQ(hit(state), std::string(want.name) + " / " + text);
    }
}

// --- global_spam_hit_r ---

namespace {

// The default rules and the two that are always on, each marked by its letter; "x" is not enabled.
void fill_default_table(rule_list *rules) {
    rules->add("block_ip_in_addr", misses<'a'>);
    rules->add("require_helo", misses<'b'>);
    rules->add("valid_helo_domain", misses<'c'>);
    rules->add("require_full_addr", misses<'d'>);
    rules->add("valid_ptr", misses<'e'>);
    rules->add("check_ip_reverse_dns", misses<'f'>);
    rules->add("check_dynamic_reverse_dns", misses<'g'>);
    rules->add("check_reverse_dns_list", misses<'h'>);
    rules->add("ip_blacklist", misses<'i'>);
    rules->add("from_blacklist", misses<'j'>);
    rules->add("known_sender_forgery", misses<'x'>);
    rules->add("block_all_mail", misses<'y'>);
}

} // namespace

TEST_F(decision_test, the_rules_that_are_enabled) {
    static const struct {
        const char *name;
        const char *file; // null for none
        const char *want;
    } cases[] = {
        {"no file: the default", nullptr, "abcdefghij"},
        {"an empty file: nothing but the two", "", "ij"},
        {"two rules", "known_sender_forgery\nrequire_helo\n", "bijx"},
        {"no line end", "block_all_mail", "ijy"},
        {"one of the two named as well", "ip_blacklist\n", "ij"},
        {"CR LF: the CR is part of the name", "require_helo\r\nvalid_ptr\r\n", "ij"},
        {"blanks are part of the name", "require_helo \n valid_ptr\n", "ij"},
        {"an unknown rule", "no_such_rule\nvalid_ptr\n", "eij"},
    };
    rule_list rules;
    fill_default_table(&rules);
    for (const auto &c : cases) {
        drive.remove("c:/quillfence/control/rules.enabled");
        if (c.file) {
            drive.write("c:/quillfence/control/rules.enabled", c.file);
        }
        session state(client_ip);
        ran.clear();
        EXPECT_EQ(global_spam_hit_r(state, rules.head), 1) << c.name;
        std::string letters;
        for (const std::string &letter : ran) {
            letters += letter;
        }
        EXPECT_EQ(letters, c.want) << c.name;
    }
}

TEST_F(decision_test, only_the_earlier_of_two_hits_is_recorded) {
    rule_list rules;
    rules.add("require_helo", hits_as<'a'>);
    rules.add("valid_ptr", hits_as<'b'>);
    session state(client_ip);
    ran.clear();
    EXPECT_EQ(global_spam_hit_r(state, rules.head), 1);
    EXPECT_EQ(hit(state), "require_helo / rejected");
    EXPECT_EQ(ran, lines{"a"});
}

TEST_F(decision_test, the_base_directory_of_a_spam_check) {
    static const struct {
        const char *before, *after;
    } cases[] = {{nullptr, "(none)"},
                 {"c:/quillfence/", "c:/quillfence/"},
                 {"c:/quillfence", "c:/quillfence/"},
                 {"", "c:/quillfence/"},
                 {"c:/users/a/", "c:/quillfence/"}};
    rule_list rules;
    rules.add("require_helo", never_hits);
    for (const auto &c : cases) {
        session state(client_ip);
        session::put(&state->base_dir, c.before);
        EXPECT_EQ(global_spam_hit_r(state, rules.head), 1);
        EXPECT_EQ(shown(state->base_dir), c.after);
    }
}

TEST_F(decision_test, a_spam_check_needs_a_session_but_no_table) {
    rule_list rules;
    rules.add("require_helo", always_hits);
    EXPECT_EQ(global_spam_hit_r(nullptr, rules.head), 0);
    EXPECT_EQ(log.errors(), lines{"global_spam_hit_r: Invalid argument"});
    session state(client_ip);
    EXPECT_EQ(global_spam_hit_r(state, nullptr), 1);
    EXPECT_EQ(hit(state), "(none) / (none)");
}

TEST_F(decision_test, a_folder_is_no_list_of_enabled_rules) {
    drive.make_folder("c:/quillfence/control/rules.enabled");
    rule_list rules;
    rules.add("known_sender_forgery", always_hits);
    rules.add("valid_ptr", always_hits);
    session state(client_ip);
    EXPECT_EQ(global_spam_hit_r(state, rules.head), 1);
    EXPECT_EQ(hit(state), "valid_ptr / rejected");
}

// --- Block maps ---

TEST_F(decision_test, the_maps_that_list_the_address_make_the_hit) {
    drive.write("c:/quillfence/bms/a", map_listing(10));
    drive.write("c:/quillfence/bms/b", map_listing(11));
    drive.write("c:/quillfence/bms/c", map_listing(10));
    rule_list rules;
    rules.add("block_lists", nullptr, 0, 1, 0, 0, "Server IP %IP% listed as abusive.");
    static const struct {
        const char *ip;
        std::vector<std::string> lists;
        const char *want;
    } cases[] = {
        {"10.1.2.3", {"a", "b", "c"}, "block_list (a,c) / Server IP 10.1.2.3 listed as abusive."},
        {"10.1.2.3", {"c", "a"}, "block_list (c,a) / Server IP 10.1.2.3 listed as abusive."},
        {"11.1.2.3", {"a", "b", "c"}, "block_list (b) / Server IP 11.1.2.3 listed as abusive."},
        {"12.1.2.3", {"a", "b", "c"}, "(none) / (none)"},
        {"10.1.2.3", {"b", "missing", ""}, "(none) / (none)"},
    };
    for (const auto &c : cases) {
        const name_list lists(c.lists);
        session state(c.ip);
        EXPECT_EQ(run_bms_checks_r(state, lists.head, rules.head), 1);
        EXPECT_EQ(hit(state), c.want);
    }
}

TEST_F(decision_test, a_block_map_hit_replaces_an_earlier_one) {
    drive.write("c:/quillfence/bms/a", map_listing(10));
    rule_list rules;
    rules.add("block_lists", nullptr);
    const name_list lists({"a"});
    session state(client_ip);
    session::put(&state->hit_name, "old");
    session::put(&state->rejection_notice, "old notice");
    state->notice_flag = 1;
    EXPECT_EQ(run_bms_checks_r(state, lists.head, rules.head), 1);
    EXPECT_EQ(hit(state), "block_list (a) / rejected");
    EXPECT_EQ(state->notice_flag, 0);
}

TEST_F(decision_test, a_block_map_hit_without_a_notice_fails) {
    drive.write("c:/quillfence/bms/a", map_listing(10));
    rule_list rules;
    drop_rejection(rules.add("block_lists", nullptr));
    const name_list lists({"a"});
    session state(client_ip);
    EXPECT_EQ(run_bms_checks_r(state, lists.head, rules.head), 0);
    EXPECT_EQ(hit(state), "block_list (a) / (none)");
    EXPECT_EQ(log.errors(), lines{"build_rejection_notice: Invalid argument"});
}

// More map names than one log line or notice would hold.
TEST_F(decision_test, a_block_map_hit_names_every_map) {
    std::vector<std::string> names;
    std::string joined;
    for (int i = 0; i < 30; ++i) {
        names.push_back(std::to_string(i) + std::string(60, 'm'));
        joined += (i ? "," : "") + names.back();
        drive.write("c:/quillfence/bms/" + names.back(), map_listing(10));
    }
    rule_list rules;
    rules.add("block_lists", nullptr);
    const name_list lists(names);
    session state(client_ip);
    EXPECT_EQ(run_bms_checks_r(state, lists.head, rules.head), 1);
    EXPECT_EQ(shown(state->hit_name), "block_list (" + joined + ")");
}

TEST_F(decision_test, a_block_map_check_with_nothing_to_do) {
    rule_list rules;
    rules.add("block_lists", nullptr);
    rule_list others;
    others.add("block_rbl_lists", nullptr);
    const name_list lists({"a"});
    session state(client_ip);
    log.take();
    EXPECT_EQ(run_bms_checks_r(state, nullptr, rules.head), 1);
    EXPECT_EQ(log.transcript(), lines{"D run_bms_checks_r: nothing to check. returning"});
    EXPECT_EQ(run_bms_checks_r(state, lists.head, others.head), 1);
    EXPECT_EQ(log.transcript(), lines{"D run_bms_checks_r: block_lists not enabled, returning"});
    EXPECT_EQ(run_bms_checks_r(state, lists.head, nullptr), 1);
    EXPECT_EQ(log.transcript(), lines{"D run_bms_checks_r: block_lists not enabled, returning"});
    EXPECT_EQ(run_bms_checks_r(nullptr, lists.head, rules.head), 0);
    EXPECT_EQ(log.transcript(), lines{"E run_bms_checks_r: Invalid argument"});
    EXPECT_EQ(hit(state), "(none) / (none)");
}

// First the lists, then the rule, then the kind of session: only the line tells.
TEST_F(decision_test, why_a_block_map_check_has_nothing_to_do) {
    rule_list rules;
    rules.add("block_lists", nullptr, 1, 1, 0, 1);
    const name_list lists({"a"});
    session local(client_ip);
    local->localhost = 1;
    log.take();
    static const lines nothing = {"D run_bms_checks_r: nothing to check. returning"};
    EXPECT_EQ(run_bms_checks_r(local, nullptr, nullptr), 1);
    EXPECT_EQ(log.transcript(), nothing);
    EXPECT_EQ(run_bms_checks_r(local, nullptr, rules.head), 1);
    EXPECT_EQ(log.transcript(), nothing);
    EXPECT_EQ(run_bms_checks_r(local, lists.head, nullptr), 1);
    EXPECT_EQ(log.transcript(), lines{"D run_bms_checks_r: block_lists not enabled, returning"});
    EXPECT_EQ(run_bms_checks_r(local, lists.head, rules.head), 1);
    EXPECT_EQ(log.transcript(),
              lines{"D run_bms_checks_r: connection detected as LOCALHOST: returning"});
}

TEST_F(decision_test, the_global_block_map_check) {
    drive.write("c:/quillfence/bms/a", map_listing(10));
    rule_list rules;
    rules.add("block_lists", nullptr);
    {
        session state(client_ip);
        EXPECT_EQ(global_bms_r(state, rules.head), 1);
        EXPECT_EQ(hit(state), "(none) / (none)") << "no bms.enabled";
        EXPECT_EQ(shown(state->base_dir), "c:/quillfence/");
    }
    drive.write("c:/quillfence/control/bms.enabled", "b\na\n");
    {
        session state(client_ip);
        session::put(&state->base_dir, "c:/users/a/");
        EXPECT_EQ(global_bms_r(state, rules.head), 1);
        EXPECT_EQ(hit(state), "block_list (a) / rejected");
        EXPECT_EQ(shown(state->base_dir), "c:/quillfence/");
    }
}

TEST_F(decision_test, the_global_block_map_check_without_rule_or_arguments) {
    rule_list others;
    others.add("require_helo", nullptr);
    session state(client_ip), no_ip(nullptr);
    EXPECT_EQ(global_bms_r(state, nullptr), 1);
    EXPECT_EQ(shown(state->base_dir), "(none)") << "nothing was done";
    EXPECT_EQ(global_bms_r(state, others.head), 0);
    EXPECT_EQ(shown(state->base_dir), "c:/quillfence/");
    EXPECT_EQ(log.errors(), lines{});
    EXPECT_EQ(global_bms_r(nullptr, others.head), 0);
    EXPECT_EQ(log.errors(), lines{"global_bms_r: Invalid argument"});
    EXPECT_EQ(global_bms_r(no_ip, others.head), 0);
    EXPECT_EQ(log.errors(), lines{"global_bms_r: Invalid argument"});
}

// Unlike the DNS block lists, the block maps are asked for an empty text, which is no address.
TEST_F(decision_test, the_global_block_map_check_of_an_empty_address) {
    drive.write("c:/quillfence/bms/a", map_listing(0));
    drive.write("c:/quillfence/control/bms.enabled", "a\n");
    rule_list rules;
    rules.add("block_lists", nullptr);
    session state("");
    EXPECT_EQ(global_bms_r(state, rules.head), 1);
    EXPECT_EQ(hit(state), "(none) / (none)");
    EXPECT_EQ(log.errors(), lines{"lookupMaps: Invalid argument : invalid ip address"});
}

// --- DNS block lists ---

TEST_F(decision_test, the_first_block_list_that_lists_the_address_makes_the_hit) {
    dns_script dns;
    dns.answer("3.2.1.10.two.example.", 1, 0, {{1, ""}});
    dns.answer("3.2.1.10.three.example.", 1, 0, {{1, ""}});
    rule_list rules;
    rules.add("block_rbl_lists", nullptr, 0, 1, 0, 0, "Server IP %IP% listed as abusive.");
    const name_list hosts({"one.example", "", "two.example", "three.example"});
    session state(client_ip);
    state->notice_flag = 1;
    EXPECT_EQ(run_rbl_checks_r(state, hosts.head, rules.head), 1);
    EXPECT_EQ(hit(state), "block_rbl_lists (two.example) / Server IP 10.1.2.3 listed as abusive.");
    EXPECT_EQ(state->notice_flag, 0);
    const std::vector<dns_question> asked = dns.asked();
    ASSERT_EQ(asked.size(), 3u) << "none about the empty host, none behind the hit";
    EXPECT_EQ(asked[0].name, "3.2.1.10.one.example."); // its A, then its AAAA
    EXPECT_EQ(asked[1].name, "3.2.1.10.one.example.");
    EXPECT_EQ(asked[2].name, "3.2.1.10.two.example.");
}

TEST_F(decision_test, a_block_list_hit_replaces_an_earlier_one) {
    dns_script dns;
    dns.answer("3.2.1.10.one.example.", 1, 0, {{1, ""}});
    rule_list rules;
    rules.add("block_rbl_lists", nullptr);
    const name_list hosts({"one.example"});
    session state(client_ip);
    session::put(&state->hit_name, "old");
    session::put(&state->rejection_notice, "old notice");
    EXPECT_EQ(run_rbl_checks_r(state, hosts.head, rules.head), 1);
    EXPECT_EQ(hit(state), "block_rbl_lists (one.example) / rejected");
}

TEST_F(decision_test, a_block_list_hit_without_a_notice_fails) {
    dns_script dns;
    dns.answer("3.2.1.10.one.example.", 1, 0, {{1, ""}});
    rule_list rules;
    drop_rejection(rules.add("block_rbl_lists", nullptr));
    const name_list hosts({"one.example"});
    session state(client_ip);
    EXPECT_EQ(run_rbl_checks_r(state, hosts.head, rules.head), 0);
    EXPECT_EQ(hit(state), "block_rbl_lists (one.example) / (none)");
    EXPECT_EQ(log.errors(), lines{"build_rejection_notice: Invalid argument"});
}

TEST_F(decision_test, no_block_list_lists_the_address) {
    dns_script dns;
    rule_list rules;
    rules.add("block_rbl_lists", nullptr);
    const name_list hosts({"one.example", "two.example"});
    session state(client_ip);
    EXPECT_EQ(run_rbl_checks_r(state, hosts.head, rules.head), 1);
    EXPECT_EQ(hit(state), "(none) / (none)");
    EXPECT_EQ(dns.asked().size(), 4u) << "A and AAAA of both";
}

TEST_F(decision_test, a_block_list_check_with_nothing_to_do) {
    dns_script dns;
    rule_list rules;
    rules.add("block_rbl_lists", nullptr);
    rule_list others;
    others.add("block_lists", nullptr);
    const name_list hosts({"one.example"});
    session state(client_ip);
    log.take();
    EXPECT_EQ(run_rbl_checks_r(state, nullptr, rules.head), 1);
    EXPECT_EQ(log.transcript(), lines{"D run_rbl_checks_r: no lists to check"});
    EXPECT_EQ(run_rbl_checks_r(state, hosts.head, others.head), 1);
    EXPECT_EQ(log.transcript(), lines{"D run_rbl_checks_r: block_rbl_lists not enabled"});
    EXPECT_EQ(run_rbl_checks_r(nullptr, hosts.head, rules.head), 0);
    EXPECT_EQ(log.transcript(), lines{"E run_rbl_checks_r: Invalid argument"});
    EXPECT_TRUE(dns.asked().empty());
}

// First the rule, then the kind of session, then the hosts: only the line tells.
TEST_F(decision_test, why_a_block_list_check_has_nothing_to_do) {
    rule_list rules;
    rules.add("block_rbl_lists", nullptr, 1, 1, 0, 1);
    session local(client_ip);
    local->localhost = 1;
    log.take();
    EXPECT_EQ(run_rbl_checks_r(local, nullptr, nullptr), 1);
    EXPECT_EQ(log.transcript(), lines{"D run_rbl_checks_r: block_rbl_lists not enabled"});
    EXPECT_EQ(run_rbl_checks_r(local, nullptr, rules.head), 1);
    EXPECT_EQ(log.transcript(), lines{"D run_rbl_checks_r: connection detected as LOCALHOST"});
}

TEST_F(decision_test, the_global_block_list_check) {
    dns_script dns;
    dns.answer("3.2.1.10.two.example.", 1, 0, {{1, ""}});
    rule_list rules;
    rules.add("block_rbl_lists", nullptr);
    {
        session state(client_ip);
        EXPECT_EQ(global_rbl_r(state, rules.head), 1) << "no rbl.enabled";
        EXPECT_EQ(hit(state), "(none) / (none)");
    }
    drive.write("c:/quillfence/rbl.enabled", "one.example\ntwo.example\n");
    session state(client_ip);
    session::put(&state->base_dir, "c:/users/a/");
    EXPECT_EQ(global_rbl_r(state, rules.head), 1);
    EXPECT_EQ(hit(state), "block_rbl_lists (two.example) / rejected");
    EXPECT_EQ(shown(state->base_dir), "c:/users/a/") << "this driver leaves it alone";
}

TEST_F(decision_test, the_global_block_list_check_without_rule_or_arguments) {
    rule_list others;
    others.add("block_lists", nullptr);
    session state(client_ip), no_ip(nullptr), empty_ip("");
    EXPECT_EQ(global_rbl_r(state, nullptr), 1);
    EXPECT_EQ(global_rbl_r(state, others.head), 0);
    EXPECT_EQ(log.errors(), lines{});
    for (smtp_state *bad : {static_cast<smtp_state *>(nullptr), static_cast<smtp_state *>(no_ip),
                            static_cast<smtp_state *>(empty_ip)}) {
        EXPECT_EQ(global_rbl_r(bad, others.head), 0);
        EXPECT_EQ(log.errors(), lines{"global_rbl_r: Invalid argument"});
    }
}

// --- Exemptions ---

namespace {

// Exempts a session whose base directory is the one of its `extra` text.
uint8_t exempts_there(smtp_state *state) {
    return state->base_dir && state->extra && strcmp(state->base_dir, state->extra) == 0;
}

} // namespace

TEST_F(decision_test, exempt_by_the_first_directory) {
    rule_list rules;
    rules.add("to_whitelist", never_hits);
    rules.add("ip_whitelist", exempts_there, 1, 1, 1, 1, "whitelisted");
    session state(client_ip);
    session::put(&state->extra, "c:/quillfence/");
    state->notice_flag = 1;
    log.take();
    EXPECT_EQ(is_exempt_r(state, "c:/users/a", rules.head), 1);
    EXPECT_EQ(own_lines(), (lines{
                               "D is_exempt_r: function is_exempt_r",
                               "D is_exempt_r: calling run_spam_check_r",
                               "D run_spam_checks_r: Checking rule [to_whitelist]",
                               "D run_spam_checks_r: running rule [to_whitelist]",
                               "D run_spam_checks_r: Checking rule [ip_whitelist]",
                               "D run_spam_checks_r: running rule [ip_whitelist]",
                           }));
    EXPECT_EQ(hit(state), "ip_whitelist / (none)") << "the notice is dropped";
    EXPECT_EQ(state->notice_flag, 0);
    EXPECT_EQ(shown(state->base_dir), "c:/quillfence/");
}

TEST_F(decision_test, exempt_by_the_users_directory) {
    rule_list rules;
    rules.add("from_whitelist", exempts_there, 1, 1, 1, 1, "whitelisted");
    session state(client_ip);
    session::put(&state->extra, "c:/users/a");
    log.take();
    EXPECT_EQ(is_exempt_r(state, "c:/users/a", rules.head), 1);
    EXPECT_EQ(own_lines(), (lines{
                               "D is_exempt_r: function is_exempt_r",
                               "D is_exempt_r: calling run_spam_check_r",
                               "D run_spam_checks_r: Checking rule [from_whitelist]",
                               "D run_spam_checks_r: running rule [from_whitelist]",
                               "D run_spam_checks_r: end of checks, returning true",
                               "D is_exempt_r: checking for exemptions in user dir [c:/users/a]",
                               "D run_spam_checks_r: Checking rule [from_whitelist]",
                               "D run_spam_checks_r: running rule [from_whitelist]",
                           }));
    EXPECT_EQ(hit(state), "from_whitelist / whitelisted") << "here the notice stays";
    EXPECT_EQ(shown(state->base_dir), "c:/users/a");
}

TEST_F(decision_test, not_exempt) {
    rule_list rules;
    rules.add("to_whitelist", never_hits);
    for (const expected_rule &rule : expected_rules) { // not one of the three whitelists
        if (rule.name != std::string("ip_whitelist") &&
            rule.name != std::string("from_whitelist") &&
            rule.name != std::string("to_whitelist")) {
            rules.add(rule.name, always_hits);
        }
    }
    for (const char *user_dir : {static_cast<const char *>(nullptr), "", "c:/users/a"}) {
        session state(client_ip);
        EXPECT_EQ(is_exempt_r(state, user_dir, rules.head), 0);
        EXPECT_EQ(hit(state), "(none) / (none)");
        EXPECT_EQ(shown(state->base_dir), user_dir && *user_dir ? "c:/users/a" : "c:/quillfence/");
    }
}

// Kept on purpose: nothing clears a hit that the session brings along.
TEST_F(decision_test, a_leftover_hit_exempts) {
    rule_list rules;
    rules.add("to_whitelist", never_hits);
    session state(client_ip);
    session::put(&state->hit_name, "left over");
    session::put(&state->rejection_notice, "some notice");
    state->notice_flag = 1;
    EXPECT_EQ(is_exempt_r(state, nullptr, rules.head), 1);
    EXPECT_EQ(hit(state), "left over / (none)");
    EXPECT_EQ(state->notice_flag, 0);

    session::put(&state->hit_name, "a name without a notice");
    EXPECT_EQ(is_exempt_r(state, nullptr, rules.head), 0);
}

TEST_F(decision_test, a_failed_run_exempts_nobody) {
    rule_list rules;
    rules.add("to_whitelist", always_hits);
    session state(nullptr); // no ip: no notice
    EXPECT_EQ(is_exempt_r(state, "c:/users/a", rules.head), 0);
    EXPECT_EQ(shown(state->base_dir), "c:/quillfence/");
    EXPECT_EQ(log.errors(), lines{"vc_str_replace: Invalid argument"});
}

TEST_F(decision_test, a_failed_run_in_the_users_directory_exempts_nobody) {
    rule_list rules;
    drop_rejection(rules.add("to_whitelist", exempts_there));
    session state(client_ip);
    session::put(&state->extra, "c:/users/a");
    EXPECT_EQ(is_exempt_r(state, "c:/users/a", rules.head), 0);
    EXPECT_EQ(hit(state), "to_whitelist / (none)");
    EXPECT_EQ(shown(state->base_dir), "c:/users/a");
    EXPECT_EQ(log.errors(), lines{"build_rejection_notice: Invalid argument"});
}

// Kept on purpose: a DEBUG line, not an ERROR line.
TEST_F(decision_test, exemption_without_session_or_table) {
    rule_list rules;
    rules.add("to_whitelist", always_hits);
    session state(client_ip);
    log.take();
    static const lines want = {"D is_exempt_r: function is_exempt_r",
                               "D is_exempt_r: Invalid argument"};
    EXPECT_EQ(is_exempt_r(nullptr, nullptr, rules.head), 0);
    EXPECT_EQ(log.transcript(), want);
    EXPECT_EQ(is_exempt_r(state, nullptr, nullptr), 0);
    EXPECT_EQ(log.transcript(), want);
    EXPECT_EQ(shown(state->base_dir), "(none)");
}

TEST_F(decision_test, is_exempt_asks_the_engines_own_table) {
    session state(client_ip);
    session::put(&state->mail_from, "friend@example.org");
    session::put(&state->rcpt_to, "user@example.net");
    log.take();
    EXPECT_EQ(is_exempt(state, nullptr), 0) << "the engine is not started";
    EXPECT_EQ(log.transcript(),
              (lines{"D is_exempt: function is_exempt - passing on to is_exempt_r",
                     "D is_exempt_r: function is_exempt_r", "D is_exempt_r: Invalid argument"}));

    const running_engine engine;
    drive.write("c:/users/a/from_whitelist", "*@example.org\n");
    EXPECT_EQ(is_exempt(state, nullptr), 0);
    EXPECT_EQ(is_exempt(state, "c:/users/a"), 1);
    EXPECT_EQ(hit(state), "from_whitelist / whitelisted");
}

} // namespace quillfence::testing
