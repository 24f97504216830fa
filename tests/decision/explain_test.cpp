#include "explain.h"

#include <algorithm>

#include "call_watch.h"
#include "engine_door.h"
#include "explaining.h"
#include "failing_memory.h"
#include "file_digest.h"
#include "off_source.h"
#include "pattern_lines.h"
#include "platform/error_numbers.h"
#include "zone_source.h"

namespace quillfence::testing {
namespace {

constexpr char base[] = "c:/quillfence/";

std::string path_of(const char *name) {
    return std::string(base) + name;
}

// --- the steps ---

TEST_F(explain_test, nothing_objects) {
    drive.remove(path_of("bms/one"));
    const decision_record record = explained("good");
    EXPECT_EQ(record.decision.is, verdict::accept);
    EXPECT_EQ(record.decision.by, decided_by::nothing);
    EXPECT_EQ(record.rules.size(), 31u);
    EXPECT_EQ(record.facts.ptr, lines{"mail.good.example"});
    EXPECT_TRUE(record.facts.routable);
    EXPECT_FALSE(record.facts.bounce);
    EXPECT_EQ(record.errors.size(), 0u);
    EXPECT_TRUE(record.notes.empty());
    EXPECT_EQ(record.config.base, base);
}

TEST_F(explain_test, an_engine_that_is_off_accepts_and_reaches_no_rule) {
    drive.write(path_of("control/enabled"), "0\n");
    const decision_record record = explained("blacklisted");
    EXPECT_EQ(record.decision.is, verdict::accept);
    EXPECT_EQ(record.decision.by, decided_by::engine_off);
    EXPECT_EQ(rule_of(record, "require_helo").decision, outcome::not_reached);
    EXPECT_EQ(rule_of(record, "require_helo").report, outcome::hit);
    EXPECT_EQ(rule_of(record, "block_ip_in_addr").decision, outcome::not_enabled);
    EXPECT_EQ(rule_of(record, "inbound").decision, outcome::never);
    EXPECT_EQ(rule_of(record, "helo_blacklist").decision, outcome::never);
}

TEST_F(explain_test, an_exemption_names_its_entry) {
    const decision_record record = explained("whitelisted");
    EXPECT_EQ(record.decision.is, verdict::accept);
    EXPECT_EQ(record.decision.by, decided_by::exempt);
    EXPECT_EQ(record.decision.rule, "to_whitelist");
    EXPECT_EQ(record.decision.where, "base");
    EXPECT_EQ(record.decision.notice, "");
    const rule_record &rule = rule_of(record, "to_whitelist");
    EXPECT_EQ(rule.decision, outcome::exempt);
    EXPECT_EQ(rule.report, outcome::hit_unreported);
    EXPECT_EQ(rule.from, source(list_source{path_of("exempt_users"), 1, "postmaster@here.example",
                                            "whole text"}));
    EXPECT_EQ(rule.fact, "recipient");
    EXPECT_EQ(rule.value, "postmaster@here.example");
    EXPECT_EQ(rule.looked_at, 1u);
}

TEST_F(explain_test, an_exemption_of_the_users_own) {
    options.user_dir = "c:/quillfence/users/b/";
    drive.write("c:/quillfence/users/b/from_whitelist", "\n# mine\n*@foe.example\n");
    const decision_record record = explained("blacklisted");
    EXPECT_EQ(record.decision.by, decided_by::exempt);
    EXPECT_EQ(record.decision.rule, "from_whitelist");
    EXPECT_EQ(record.decision.where, "user");
    const rule_record &rule = rule_of(record, "from_whitelist");
    EXPECT_EQ(rule.from, source(list_source{"c:/quillfence/users/b/from_whitelist", 3,
                                            "*@foe.example", "wildcard"}));
    EXPECT_EQ(record.config.user_dir, options.user_dir);
}

// A whitelist is asked twice then: what is said of it speaks of both lists.
class explain_users_test : public explain_test {
  protected:
    explain_users_test() {
        options.user_dir = "c:/quillfence/users/b/";
    }
    rule_record told_of(const char *rule) {
        return rule_of(explained("good"), rule);
    }
    static std::vector<std::string> places_of(const rule_record &rule) {
        std::vector<std::string> places;
        for (const near_miss &near : rule.near_misses) {
            const auto &from = std::get<list_source>(near.from);
            places.push_back(from.file + ':' + std::to_string(from.line));
        }
        return places;
    }
    // Ranges that end before they begin, which makes the file a damaged one.
    void damage(const std::string &path) {
        drive.write(path, std::string("\x0A\0\0\0\x09\0\0\0\0\0\0\0", 12));
    }
    const std::string own = "c:/quillfence/users/b/";
};

TEST_F(explain_users_test, entries_of_both_whitelists_are_counted_in_the_reason) {
    drive.remove(path_of("from_whitelist"));
    EXPECT_EQ(told_of("from_whitelist").reason, "no list is installed");
    drive.write(own + "from_whitelist", "a@x.example\n");
    EXPECT_EQ(told_of("from_whitelist").reason, "the one entry does not match");
    drive.write(own + "from_whitelist", "a@x.example\n@x\n*@y.example\n");
    EXPECT_EQ(told_of("from_whitelist").reason, "none of 3 entries matches");
    drive.write(path_of("from_whitelist"), "b@x.example\n");
    const rule_record both = told_of("from_whitelist");
    EXPECT_EQ(both.reason, "none of 4 entries matches");
    EXPECT_EQ(both.looked_at, 4u);
    drive.write(own + "from_whitelist", "");
    EXPECT_EQ(told_of("from_whitelist").reason, "the one entry does not match");
    drive.write(own + "from_whitelist", "@x\n*@good.example\n");
    EXPECT_EQ(told_of("from_whitelist").reason, "the sender matches an entry");
    EXPECT_EQ(told_of("from_whitelist").looked_at, 3u);
}

TEST_F(explain_users_test, near_misses_of_both_whitelists) {
    drive.write(path_of("from_whitelist"), "*@good.example \n");
    drive.write(own + "from_whitelist", "x\ngood.example\n");
    EXPECT_EQ(places_of(told_of("from_whitelist")),
              (lines{path_of("from_whitelist") + ":1", own + "from_whitelist:2"}));
    drive.remove(path_of("from_whitelist"));
    EXPECT_EQ(places_of(told_of("from_whitelist")), lines{own + "from_whitelist:2"});
}

TEST_F(explain_users_test, the_failure_of_either_whitelist_is_the_reason) {
    for (const auto &[damaged, whole] : {std::pair(own, path_of("")), {path_of(""), own}}) {
        damage(damaged + "exempt_ips.range");
        drive.remove(whole + "exempt_ips.range");
        drive.write(whole + "exempt_ips", "192.0.2.200\n");
        const decision_record record = explained("good");
        const rule_record &rule = rule_of(record, "ip_whitelist");
        EXPECT_EQ(rule.decision, outcome::undecided);
        EXPECT_EQ(rule.reason,
                  damaged + "exempt_ips.range could not be looked at: the file is corrupt");
        log.take();
    }
    damage(own + "exempt_ips.range");
    damage(path_of("exempt_ips.range"));
    const decision_record record = explained("good");
    EXPECT_EQ(rule_of(record, "ip_whitelist").reason,
              path_of("exempt_ips.range") + " could not be looked at: the file is corrupt");
    ASSERT_FALSE(record.notes.empty());
    EXPECT_EQ(record.notes.back().text, "not known whether these hit: ip_whitelist");
    log.take();
}

TEST_F(explain_test, a_blacklisted_sender_is_told_with_line_and_notice) {
    drive.write(path_of("control/rules.enabled"), "valid_ptr\n");
    drive.write(path_of("blocked_ips.range"), "");
    drive.write(path_of("from_blacklist"), "# foes\n*@foe.example\n");
    const decision_record record = explained("blacklisted");
    EXPECT_EQ(record.decision.is, verdict::reject);
    EXPECT_EQ(record.decision.by, decided_by::rule);
    EXPECT_EQ(record.decision.rule, "from_blacklist");
    EXPECT_EQ(record.decision.hit_name, "from_blacklist");
    EXPECT_NE(record.decision.notice.find("on the recipient's blacklist"), std::string::npos);
    EXPECT_EQ(rule_of(record, "from_blacklist").from,
              source(list_source{path_of("from_blacklist"), 2, "*@foe.example", "wildcard"}));
    EXPECT_EQ(rule_of(record, "from_blacklist").report, outcome::hit_unreported);
}

TEST_F(explain_test, a_block_map_names_its_network) {
    const decision_record record = explained("good");
    EXPECT_EQ(record.decision.by, decided_by::block_map);
    EXPECT_EQ(record.decision.rule, "block_lists");
    EXPECT_EQ(record.decision.maps, lines{"one"});
    EXPECT_EQ(record.decision.hit_name, "block_list (one)");
    ASSERT_EQ(record.block_maps.size(), 1u);
    EXPECT_EQ(record.block_maps[0], (block_map_record{"one", outcome::hit, "192.0.0.0/8", 1}));
    EXPECT_EQ(record.report->bms_hits, (lines{"one", "two"}));
}

TEST_F(explain_test, skipped_for_a_kind_of_session) {
    transaction what = transaction_of(clients[0]);
    what.mua = true;
    const decision_record record = explained(what);
    const rule_record &rule = rule_of(record, "valid_ptr");
    EXPECT_EQ(rule.decision, outcome::skipped);
    EXPECT_EQ(rule.report, outcome::skipped);
    EXPECT_EQ(rule.kind, "mua");
    EXPECT_EQ(rule_of(record, "block_lists").decision, outcome::skipped);
    EXPECT_EQ(rule_of(record, "block_rbl_lists").kind, "mua");
}

TEST_F(explain_test, the_rules_behind_the_decision_on_request) {
    const decision_record without = explained("nothing right");
    EXPECT_EQ(rule_of(without, "resolve_helo_domain").decision, outcome::not_reached);
    EXPECT_EQ(rule_of(without, "resolve_helo_domain").would, std::nullopt);
    options.all = true;
    const decision_record with = explained("nothing right");
    EXPECT_EQ(with.decision, without.decision);
    EXPECT_EQ(rule_of(with, "resolve_helo_domain").would, outcome::hit);
    EXPECT_EQ(rule_of(with, "block_all_mail").would, outcome::hit);
    EXPECT_EQ(rule_of(with, "block_lists").would, outcome::hit);
    EXPECT_EQ(rule_of(with, "require_helo").would, std::nullopt) << "it was reached";
}

TEST_F(explain_test, without_a_report) {
    options.report = false;
    const decision_record record = explained("good");
    EXPECT_EQ(record.report, std::nullopt);
    EXPECT_EQ(rule_of(record, "valid_ptr").report, std::nullopt);
}

TEST_F(explain_test, a_transaction_that_the_engine_refuses) {
    transaction what = transaction_of(clients[0]);
    what.ip = "";
    const decision_record record = explained(what);
    EXPECT_EQ(record.decision.is, verdict::undecided);
    EXPECT_EQ(record.decision.by, decided_by::error);
    EXPECT_FALSE(record.report->failed.empty());
    EXPECT_FALSE(record.errors.empty());
    log.take();
}

// --- names and patterns ---

TEST_F(explain_test, every_name_with_what_matched_and_what_exempts_it) {
    const decision_record hit = explained("dynamic");
    const rule_record &rule = rule_of(hit, "check_dynamic_reverse_dns");
    ASSERT_EQ(rule.names.size(), 1u);
    const source expression =
        expression_source{path_of("dynaregex/dyna.cregexes"), 1, "dyn[0-9].*", "", 0};
    EXPECT_EQ(rule.names[0].matched, expression);
    EXPECT_EQ(rule.from, expression);
    EXPECT_EQ(rule.dns, std::vector<uint32_t>{0});

    transaction exempt = transaction_of(clients[1]);
    exempt.ip = "192.0.2.3";
    const decision_record saved = explained(exempt);
    const rule_record &spared = rule_of(saved, "check_dynamic_reverse_dns");
    EXPECT_EQ(spared.decision, outcome::no_hit);
    EXPECT_EQ(spared.exempted_by,
              source(expression_source{path_of("dynaregex/exempt.cregexes"), 1, "dyn9.*", "", 0}));
    EXPECT_EQ(spared.reason, "dyn9-192-0-2-3.pool.example matches, but is exempt");
}

TEST_F(explain_test, a_client_of_many_names_costs_no_more_than_a_hundred) {
    std::vector<std::string> names;
    for (int i = 1; i <= 103; ++i) {
        names.push_back("n" + std::to_string(i) + ".pool.example");
    }
    dns.ptr("1.2.0.192.in-addr.arpa.", names);
    const decision_record whole = explained("good");
    EXPECT_EQ(whole.facts.ptr, names);
    EXPECT_EQ(whole.facts.ptr_left_out, std::nullopt);
    options.all_names = false;
    explain_result used;
    explain(transaction_of(clients[0]), options, &used);
    EXPECT_EQ(used.record.facts.ptr, std::vector(names.begin(), names.begin() + 100));
    EXPECT_EQ(used.record.facts.ptr_left_out, 3u);
    EXPECT_EQ(used.record.decision, whole.decision);
    explain(transaction_of(clients[1]), options, &used);
    EXPECT_EQ(used.record.facts.ptr.size(), 1u);
    EXPECT_EQ(used.record.facts.ptr_left_out, std::nullopt) << "of another record";
}

TEST_F(explain_test, a_rule_without_its_file_says_so) {
    drive.remove(path_of("dynaregex/dyna.cregexes"));
    drive.remove(path_of("from_blacklist"));
    const decision_record record = explained("dynamic");
    EXPECT_EQ(rule_of(record, "check_dynamic_reverse_dns").reason, "no pattern file is installed");
    EXPECT_EQ(rule_of(record, "from_blacklist").reason, "no list is installed");
}

TEST_F(explain_test, an_expression_is_named_by_its_list_where_that_is_known) {
    const std::string file = dyna_regex_file;
    std::string digest;
    ASSERT_EQ(data_files::digest_of_file(file, &digest), 0u);
    drive.write(file + ".lines", data_files::pattern_lines_text(digest, {{7, "dyna.list"}}));
    const decision_record record = explained("dynamic");
    EXPECT_EQ(rule_of(record, "check_dynamic_reverse_dns").from,
              source(expression_source{file, 1, "dyn[0-9].*", "dyna.list", 7}));
    EXPECT_TRUE(record.notes.empty());

    drive.write(file + ".lines",
                data_files::pattern_lines_text(std::string(64, '0'), {{7, "dyna.list"}}));
    const decision_record stale = explained("dynamic");
    EXPECT_EQ(rule_of(stale, "check_dynamic_reverse_dns").from,
              source(expression_source{file, 1, "dyn[0-9].*", "", 0}));
    ASSERT_EQ(stale.notes.size(), 1u);
    EXPECT_EQ(stale.notes[0].severity, "info");
}

TEST_F(explain_test, the_consulted_files_with_size_and_digest) {
    const auto consulted = [](const decision_record &record, const std::string &path) {
        for (const config_file &one : record.config.files) {
            if (one.path == path) {
                return one;
            }
        }
        return config_file{};
    };
    const config_file list = consulted(explained("good"), path_of("from_blacklist"));
    EXPECT_EQ(list.bytes, std::string("*@foe.example\n").size());
    EXPECT_EQ(list.sha256, data_files::digest_of("*@foe.example\n"));
    drive.write(path_of("from_blacklist"), std::string((8u << 20) + 1, '#'));
    const config_file large = consulted(explained("good"), path_of("from_blacklist"));
    EXPECT_EQ(large.bytes, (8u << 20) + 1);
    EXPECT_EQ(large.sha256, "");
    EXPECT_EQ(large.time.size(), std::string("2026-11-22T04:51:13Z").size()) << large.time;
    drive.remove(path_of("from_blacklist"));
    const decision_record without = explained("good");
    EXPECT_TRUE(std::any_of(without.config.files.begin(), without.config.files.end(),
                            [](const config_file &one) {
                                return one.path == path_of("from_blacklist") && one.missing;
                            }));
}

// --- near misses ---

TEST_F(explain_test, entries_that_may_have_been_meant) {
    drive.write(path_of("from_blacklist"), "*@example\n*@good.example \nmail.example\n");
    drive.write(path_of("blocked_ips"), "192.0.2.0/24\n");
    const decision_record record = explained("good");
    const rule_record &sender = rule_of(record, "from_blacklist");
    ASSERT_EQ(sender.near_misses.size(), 1u);
    EXPECT_EQ(sender.near_misses[0].what, "trailing_blank");
    EXPECT_EQ(sender.near_misses[0].from,
              source(list_source{path_of("from_blacklist"), 2, "*@good.example ", ""}));
    const rule_record &client = rule_of(record, "ip_blacklist");
    ASSERT_EQ(client.near_misses.size(), 1u);
    EXPECT_EQ(client.near_misses[0].what, "network");
}

TEST_F(explain_test, names_in_control_files_that_end_in_white_space) {
    drive.write(path_of("control/rules.enabled"), "valid_ptr\r\n\r\nrequire_helo \nblock_lists\n"
                                                  "block_rbl_lists\nvalid_helo_domain\t\r\n");
    drive.write(path_of("control/bms.enabled"), "missing\none\r\n");
    drive.write(path_of("rbl.enabled"), "zone.example\r\nother.example\r\n");
    decision_record record = explained("good");
    const auto misses = [&](const char *rule) {
        lines found;
        for (const near_miss &near : rule_of(record, rule).near_misses) {
            EXPECT_EQ(near.what, "trailing_blank");
            EXPECT_EQ(near.text, "ends in white space, which belongs to the name");
            const auto &from = std::get<list_source>(near.from);
            found.push_back(from.file + ':' + std::to_string(from.line) + ':' + from.entry);
        }
        return found;
    };
    const std::string rules = path_of("control/rules.enabled");
    EXPECT_EQ(misses("valid_ptr"), lines{rules + ":1:valid_ptr\r"});
    EXPECT_EQ(misses("require_helo"), lines{rules + ":3:require_helo "});
    EXPECT_EQ(misses("valid_helo_domain"), lines{rules + ":6:valid_helo_domain\t\r"});
    EXPECT_EQ(misses("require_full_addr"), lines{}) << "no line comes near";
    EXPECT_EQ(misses("block_lists"), lines{path_of("control/bms.enabled") + ":2:one\r"});
    EXPECT_EQ(misses("block_rbl_lists"), (lines{path_of("rbl.enabled") + ":1:zone.example\r",
                                                path_of("rbl.enabled") + ":2:other.example\r"}));
    drive.write(path_of("control/bms.enabled"), "one\r\ncut");
    drive.write(path_of("bms/cut"), "short");
    record = explained("good");
    EXPECT_EQ(rule_of(record, "block_lists").decision, outcome::undecided);
    EXPECT_EQ(misses("block_lists"), lines{path_of("control/bms.enabled") + ":1:one\r"});
    options.near_misses = false;
    EXPECT_TRUE(rule_of(explained("good"), "valid_ptr").near_misses.empty());
    EXPECT_TRUE(rule_of(explained("good"), "block_lists").near_misses.empty());
    log.take(); // Windows refuses a file's name with a CR
}

TEST_F(explain_test, a_whitelist_that_comes_before_a_blacklist) {
    drive.write(path_of("from_blacklist"), "*@friend.example\n");
    const decision_record record = explained("whitelisted");
    const rule_record &rule = rule_of(record, "from_blacklist");
    ASSERT_EQ(rule.near_misses.size(), 1u);
    EXPECT_EQ(rule.near_misses[0].what, "opposite_list");
}

// --- DNS ---

TEST_F(explain_test, an_answer_is_told_with_who_used_it) {
    const decision_record record = explained("good");
    ASSERT_FALSE(record.dns.empty());
    const dns_record &ptr = record.dns[0];
    EXPECT_EQ(ptr.name, "1.2.0.192.in-addr.arpa.");
    EXPECT_EQ(ptr.type, "PTR");
    EXPECT_EQ(ptr.is, answer_class::found);
    EXPECT_EQ(ptr.records, lines{"PTR mail.good.example."});
    EXPECT_NE(std::find(ptr.used_by.begin(), ptr.used_by.end(), "valid_ptr"), ptr.used_by.end());
    const auto asked_for_ptr =
        std::count_if(record.dns.begin(), record.dns.end(),
                      [](const dns_record &one) { return one.type == "PTR"; });
    EXPECT_EQ(asked_for_ptr, 1) << "the report's session asks the same again";
}

TEST_F(explain_test, the_truth_of_a_block_list_and_where_the_engine_differs) {
    drive.remove(path_of("bms/one"));
    drive.write(path_of("rbl.enabled"), "lists.example\n");
    const auto asked = [&](const char *address) {
        dns_sources::zone_source zone;
        EXPECT_EQ(zone.add_record("1.2.0.192.lists.example", "A", address), std::nullopt);
        dns_sources::engine_door door(zone);
        options.dns = door.slots();
        options.report = false;
        drive.write(path_of("control/rules.enabled"), "require_helo\n");
        return explained("good");
    };
    decision_record record = asked("127.0.0.2");
    ASSERT_EQ(record.dns_block_lists.size(), 1u);
    EXPECT_EQ(record.decision.by, decided_by::rbl);
    EXPECT_EQ(record.decision.zone, "lists.example");
    EXPECT_EQ(record.dns_block_lists[0].answer, block_list_answer::listed);
    EXPECT_TRUE(record.notes.empty());

    record = asked("127.255.255.254");
    EXPECT_EQ(record.dns_block_lists[0].is, outcome::hit);
    EXPECT_EQ(record.dns_block_lists[0].answer, block_list_answer::refused);
    ASSERT_EQ(record.notes.size(), 1u);

    record = asked("192.0.2.99");
    EXPECT_EQ(record.dns_block_lists[0].answer, block_list_answer::no_listing);
    EXPECT_EQ(record.notes.size(), 1u);
}

TEST_F(explain_test, a_missing_answer_makes_undecided) {
    drive.remove(path_of("bms/one"));
    drive.remove(path_of("rbl.enabled"));
    dns_sources::off_source off;
    dns_sources::engine_door door(off);
    options.dns = door.slots();
    const decision_record record = explained("good");
    EXPECT_EQ(record.decision.is, verdict::undecided);
    EXPECT_EQ(record.decision.by, decided_by::missing);
    EXPECT_EQ(rule_of(record, "valid_ptr").decision, outcome::undecided);
    EXPECT_EQ(rule_of(record, "require_helo").decision, outcome::no_hit);
    ASSERT_FALSE(record.missing.empty());
    EXPECT_EQ(record.missing[0], (missing_item{"dns", "1.2.0.192.in-addr.arpa.", "PTR", ""}));
    EXPECT_EQ(record.report->failed, "DNS answers are missing");
}

// --- missing facts ---

TEST_F(explain_test, a_missing_fact_withholds_the_rules_that_need_it) {
    transaction what = transaction_of(clients[4]); // blacklisted
    what.helo.reset();
    const decision_record record = explained(what);
    EXPECT_EQ(rule_of(record, "require_helo").decision, outcome::undecided);
    EXPECT_EQ(rule_of(record, "require_helo").reason, "not known: helo");
    EXPECT_EQ(record.missing, std::vector<missing_item>({{"fact", "", "", "helo"}}));
    // The client has no PTR name, which is certain.
    EXPECT_EQ(record.decision.is, verdict::reject);
    EXPECT_EQ(record.decision.rule, "check_ip_reverse_dns");
    ASSERT_EQ(record.notes.size(), 1u);
    EXPECT_NE(record.notes[0].text.find("require_helo"), std::string::npos);
    EXPECT_EQ(record.report->failed, "not known: helo");
}

TEST_F(explain_test, what_could_have_exempted_leaves_a_reject_undecided) {
    transaction what = transaction_of(clients[4]);
    what.recipient.reset();
    const decision_record record = explained(what);
    EXPECT_EQ(record.decision.is, verdict::undecided);
    EXPECT_EQ(record.decision.by, decided_by::missing);
    EXPECT_EQ(rule_of(record, "to_whitelist").decision, outcome::undecided);
}

// --- what could not be looked at ---

TEST_F(explain_test, a_list_that_can_t_be_read_makes_undecided) {
    drive.remove(path_of("bms/one"));
    drive.write(path_of("control/rules.enabled"), "require_helo\n");
    options.report = false;
    options.files = false;
    options.near_misses = false;
    const decision_record whole = explained("good");
    EXPECT_EQ(whole.decision.is, verdict::accept);
    call_watch calls;
    calls.fail("path_attributes", 1, platform::error_access_denied, true);
    const decision_record record = explained("good");
    EXPECT_EQ(record.decision.is, verdict::undecided);
    EXPECT_EQ(record.decision.by, decided_by::error);
    log.take();
}

TEST_F(explain_test, a_damaged_pattern_file_makes_its_rule_undecided) {
    drive.write(path_of("dynaregex/dyna.cregexes"), "no patterns");
    const decision_record record = explained("good");
    const rule_record &rule = rule_of(record, "check_dynamic_reverse_dns");
    EXPECT_EQ(rule.decision, outcome::undecided);
    EXPECT_EQ(rule.reason, path_of("dynaregex/dyna.cregexes") +
                               " could not be looked at: not a file of compiled patterns");
    EXPECT_FALSE(record.errors.empty());
    log.take();
}

TEST_F(explain_test, a_cut_block_map_is_undecided) {
    drive.write(path_of("bms/one"), "short");
    const decision_record record = explained("good");
    EXPECT_EQ(record.decision.is, verdict::undecided);
    EXPECT_EQ(record.decision.by, decided_by::error);
    ASSERT_EQ(record.block_maps.size(), 1u);
    EXPECT_EQ(record.block_maps[0].is, outcome::undecided);
    log.take();
}

TEST_F(explain_test, a_damaged_block_map_has_a_note_also_where_another_one_lists_the_client) {
    drive.write(path_of("control/bms.enabled"), "cut\none\nalso cut\nmissing");
    drive.write(path_of("bms/cut"), "short");
    drive.write(path_of("bms/also cut"), "");
    const std::string why = " could not be looked at: the map is cut short or can't be read";
    const std::vector<note> want = {{"warning", path_of("bms//cut") + why},
                                    {"warning", path_of("bms//also cut") + why}};
    for (const bool report : {false, true}) {
        options.report = report;
        const decision_record record = explained("good");
        EXPECT_EQ(record.decision.by, decided_by::block_map);
        ASSERT_EQ(record.block_maps.size(), 4u);
        EXPECT_EQ(record.block_maps[0].is, outcome::undecided);
        EXPECT_EQ(record.block_maps[1].is, outcome::hit);
        EXPECT_EQ(record.block_maps[2].is, outcome::undecided);
        EXPECT_TRUE(record.block_maps[3].missing);
        EXPECT_EQ(record.notes, want);
        log.take();
    }
}

TEST_F(explain_test, a_block_map_that_can_t_be_looked_at_is_not_missing) {
    drive.write(path_of("control/bms.enabled"), "one");
    options.report = options.files = options.near_misses = false;
    int undecided = 0;
    for (int nth = 1; nth <= 60; ++nth) {
        call_watch calls;
        calls.fail("path_attributes", nth, platform::error_access_denied);
        for (const block_map_record &map : explained("good").block_maps) {
            EXPECT_FALSE(map.missing) << "look " << nth;
            undecided += map.is == outcome::undecided;
        }
        log.take();
    }
    EXPECT_GT(undecided, 0);
}

// --- without memory ---

TEST_F(explain_test, without_memory_a_verdict_is_never_another) {
    options.all = true;
    for (const char *name : {"dynamic", "blacklisted", "whitelisted"}) {
        const client &who = *std::find_if(std::begin(clients), std::end(clients),
                                          [&](auto &one) { return std::string(one.name) == name; });
        const transaction what = transaction_of(who);
        const decision_record whole = explained(what);
        log.take();
        explain_result result;
        unsigned complete = 0;
        sweep_allocations([&] { result = explain(what, options); },
                          [&](unsigned n) {
                              log.take();
                              if (result.failed) {
                                  return;
                              }
                              ++complete;
                              const decision::decision &got = result.record.decision;
                              EXPECT_TRUE(got.is == verdict::undecided || got == whole.decision)
                                  << who.name << ", allocation " << n << ": " << got.rule;
                          });
        EXPECT_GT(complete, 0u);
    }
}

} // namespace
} // namespace quillfence::testing
