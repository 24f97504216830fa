#include "explain_text.h"

#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>

#include "../decision/random_record.h"
#include "answer.h"
#include "explain_words.h"
#include "sample_records.h"
#include "vc_text.h"

namespace quillfence::programs {
namespace {

using namespace decision;
using testing::rejected_sample;
using testing::sample_rule;
using testing::undecided_sample;

constexpr char rejected_text[] = R"(REJECT by from_blacklist
  sender x@spammer.example matches c:/quillfence/from_blacklist:2:
      *@spammer.example (wildcard)
  the client is told: Your email is rejected -- you are on the recipient's
      blacklist.

Transaction
  client         192.0.2.58, port 4711
  PTR            dhcp.cust.example
  HELO           mail.example.org
  sender         x@spammer.example
  recipient      (unknown)
  TLS            no
  user           (empty)
  submission     no

Notes
  warning: the server refused 1 question; the engine takes that for "does not
      exist", and rules that look for a name then hit

DNS: 3 questions to 127.0.0.1:5399 over TCP, 3002 ms; 1 silent, 1 refused
  PTR 58.2.0.192.in-addr.arpa.  PTR dhcp.cust.example.  (1.1 ms)
  A mail.example.org.  REFUSED, which the engine takes for "does not exist"
      (0.9 ms)
  MX mail.example.org.  silent: no answer came in time, a failed lookup for the
      engine  (3000 ms, attempt 2, sent 2 times)

Rules
  ip_whitelist          no: 302 entries looked at
      near: 192.0.2.0/24 stands where only single addresses match:
          c:/quillfence/exempt_ips:7: 192.0.2.0/24
  check_confirmed_dyna  would hit; not enabled
                        (c:/quillfence/control/rules.enabled has no such line);
                        the replayer reports it
      dhcp.cust.example matches confirmed.cregexes expression 4: dhcp[0-9]?[.\-]
          (confirmed.list:9)
      static.cust.example matches confirmed.cregexes expression 2: ^static, but
          is exempt by c:/quillfence/exempt_names:3: static.cust.example (whole
          text)
      other.example matches nothing
  from_blacklist        HIT: the sender matches an entry; the replayer's line
                        never names it
      sender x@spammer.example matches c:/quillfence/from_blacklist:2:
          *@spammer.example (wildcard)
  resolve_helo_domain   not reached; the replayer reports it
  never: no list is installed: helo_blacklist
  skipped: it is not for bounces: block_nonauth_ipv6

Block maps
  bots.bms  no
  gone.bms  there is no such file

DNS block lists
  bl.example.net  no: the client is not listed

Where
  id             1
  time           2026-11-22T04:51:13.123Z
  engine         1.0.0 (linux-x86_64)
  configuration  c:/quillfence/
  revision       sha256:0123

The replayer's line
  {"spam_hits":["check_confirmed_dyna"],"bms_hits":[]}
)";

constexpr char undecided_text[] = R"(UNDECIDED: something that decides is not known
  not known: helo
  not known: the answer to MX example.org.

Transaction
  client         2001:db8::1, port (unknown)
  PTR            (none)
  HELO           (unknown)
  sender         (empty)
  recipient      b\x1b[31m\xc3\xa4@example.org
  TLS            (unknown)
  user           (unknown)
  submission     (unknown)
  kind           from an IPv6 client, a bounce

Notes
  error: vc_file vc_open(): No such file or directory

Rules
  require_helo  UNDECIDED: the HELO is not known

Where
  id             2
  engine         1.0.0 (windows-x86_64)
  configuration  c:/quillfence/
  user folder    c:/users/a/
)";

constexpr char rule_text[] =
    R"(from_blacklist: HIT: the sender matches an entry; the replayer's line never
    names it
  decision       hit
  report         hit_unreported
  reason         the sender matches an entry
  sender         x@spammer.example
  source         c:/quillfence/from_blacklist:2: *@spammer.example (wildcard)
  looked at      2 entries
  DNS            PTR 58.2.0.192.in-addr.arpa.: PTR dhcp.cust.example. (1.1 ms)
  DNS            question 9
  time           14 us
)";

TEST(explain_text, a_rejection) {
    EXPECT_EQ(explain_text(rejected_sample(), {}), rejected_text);
}

TEST(explain_text, undecided) {
    EXPECT_EQ(explain_text(undecided_sample(), {}), undecided_text);
}

TEST(explain_text, one_rule) {
    EXPECT_EQ(explain_rule_text(rejected_sample(), "from_blacklist", {}), rule_text);
    EXPECT_EQ(explain_rule_text(rejected_sample(), "from_blacklis", {}), std::nullopt);
}

// What did not run, and is like others in that, shares their line; what hits elsewhere does not.
TEST(explain_text, rules_that_did_not_run_share_a_line) {
    decision_record record;
    const auto add = [&](const char *name, outcome decision, outcome report) {
        record.rules.push_back(sample_rule(1, name, decision, report));
    };
    using enum outcome;
    add("a", never, never);
    add("b", not_reached, no_hit);
    add("c", no_hit, no_hit);
    add("d", never, never);
    add("e", not_reached, hit);
    add("f", not_reached, undecided);
    const std::string text = explain_text(record, {});
    EXPECT_NE(text.find("Rules\n"
                        "  c  no\n"
                        "  e  not reached; the replayer reports it\n"
                        "  never: a, d\n"
                        "  not reached: b, f\n"),
              std::string::npos)
        << text;
}

TEST(explain_text, a_name_longer_than_its_column_has_a_line_of_its_own) {
    decision_record record;
    record.rules = {sample_rule(1, "a_name_that_takes_more_than_its_room", outcome::hit, {})};
    record.rules[0].reason = "it had to";
    EXPECT_NE(explain_text(record, {})
                  .find("  a_name_that_takes_more_than_its_room\n"
                        "                               HIT: it had to\n"),
              std::string::npos)
        << explain_text(record, {});
}

TEST(explain_text, a_long_list_is_broken_behind_a_comma) {
    decision_record record;
    record.report = report{"", {"rule_a", "rule_b", "rule_c"}, {}};
    const std::string text = explain_text(record, {.width = 40});
    EXPECT_NE(text.find("  {\"spam_hits\":[\"rule_a\",\"rule_b\",\n"
                        "      \"rule_c\"],\"bms_hits\":[]}\n"),
              std::string::npos)
        << text;
}

TEST(explain_text, the_same_question_with_the_same_answer_is_told_once) {
    decision_record record;
    dns_record dns;
    dns.name = "a.example.";
    dns.type = "A";
    dns.status = 1460;
    dns.is = answer_class::failure;
    dns.ms = 3000;
    dns.tries = 2;
    record.dns = {dns, dns, dns};
    record.dns[1].attempt = 2;
    record.dns[2].type = "MX";
    const std::string text = explain_text(record, {});
    EXPECT_NE(text.find("DNS: 3 questions, 9000 ms; 3 silent\n"
                        "  A a.example.  silent: no answer came in time, a failed lookup for the "
                        "engine\n"
                        "      (asked 2 times, 6000 ms)\n"
                        "  MX a.example.  silent: no answer came in time, a failed lookup for the "
                        "engine\n"
                        "      (3000 ms, sent 2 times)\n"),
              std::string::npos)
        << text;
}

TEST(explain_text, the_same_error_is_told_once) {
    decision_record record;
    const error_line line = {"vc_file", "vc_open", "No such file or directory"};
    record.errors = {line, {"vc_file", "vc_open", "another"}, line};
    const std::string text = explain_text(record, {});
    EXPECT_NE(text.find("Notes\n"
                        "  error: vc_file vc_open(): No such file or directory (2 times)\n"
                        "  error: vc_file vc_open(): another\n\n"),
              std::string::npos)
        << text;
}

std::string without_colour(std::string text) {
    for (size_t at = text.find('\x1b'); at != std::string::npos; at = text.find('\x1b')) {
        text.erase(at, text.find('m', at) + 1 - at);
    }
    return text;
}

TEST(explain_text, colour_adds_nothing_but_colour) {
    for (uint32_t seed = 0; seed < 100; ++seed) {
        const decision_record record = testing::random_record(seed, true).make();
        const std::string plain = explain_text(record, {});
        const std::string coloured = explain_text(record, {.colour = true});
        EXPECT_EQ(plain.find('\x1b'), std::string::npos);
        EXPECT_NE(coloured, plain);
        EXPECT_EQ(without_colour(coloured), plain);
    }
    const std::string coloured = explain_text(rejected_sample(), {.colour = true});
    EXPECT_EQ(coloured.substr(0, coloured.find('\n')), "\x1b[1;31mREJECT by from_blacklist\x1b[0m");
}

// Whatever a record holds, a terminal gets printable lines that fit.
TEST(explain_text, lines_fit_and_are_printable) {
    for (uint32_t seed = 0; seed < 300; ++seed) {
        decision_record record = testing::random_record(seed, true).make();
        record.transaction.helo = std::string(3 * seed, 'h');
        for (const size_t width : {80u, 60u}) {
            std::istringstream lines(explain_text(record, {.width = width}));
            for (std::string line; std::getline(lines, line);) {
                ASSERT_LE(line.size(), width) << line;
                ASSERT_TRUE(std::all_of(line.begin(), line.end(), is_printable)) << line;
                ASSERT_FALSE(line.ends_with(' ')) << line;
            }
        }
    }
}

TEST(explain_text, nothing_of_a_long_value_is_lost) {
    decision_record record = undecided_sample();
    record.transaction.helo = std::string(500, 'h');
    const std::string text = explain_text(record, {});
    EXPECT_EQ(std::count(text.begin(), text.end(), 'h') -
                  std::count(std::begin(undecided_text), std::end(undecided_text), 'h'),
              500);
}

// --- sentences ---

TEST(explain_words, headlines) {
    const struct {
        verdict is;
        decided_by by;
        const char *want;
    } cases[] = {
        {verdict::accept, decided_by::engine_off, "ACCEPT: the engine is switched off"},
        {verdict::accept, decided_by::exempt, "ACCEPT: exempt by to_whitelist"},
        {verdict::reject, decided_by::rule, "REJECT by to_whitelist"},
        {verdict::reject, decided_by::block_map, "REJECT by the block maps a.bms, b.bms"},
        {verdict::reject, decided_by::rbl, "REJECT by the DNS block list bl.example"},
        {verdict::accept, decided_by::nothing, "ACCEPT: nothing objected"},
        {verdict::undecided, decided_by::missing, "UNDECIDED: something that decides is not known"},
        {verdict::undecided, decided_by::error, "UNDECIDED: something failed"},
    };
    for (const auto &c : cases) {
        decision_record record;
        record.decision.is = c.is;
        record.decision.by = c.by;
        record.decision.rule = "to_whitelist";
        record.decision.maps = {"a.bms", "b.bms"};
        record.decision.zone = "bl.example";
        EXPECT_EQ(headline(record), c.want);
    }
}

TEST(explain_words, what_decided_beyond_rules) {
    decision_record record;
    record.decision.is = verdict::reject;
    record.decision.by = decided_by::block_map;
    record.block_maps = {{"a.bms", outcome::hit, "10.11.0.0/16", 2, false},
                         {"b.bms", outcome::no_hit, "", 0, false}};
    record.dns_block_lists = {
        {"bl.example", outcome::hit, block_list_answer::listed, {"A 127.0.0.2"}, {}}};
    EXPECT_EQ(what_decided(record), (std::vector<std::string>{"a.bms lists 10.11.0.0/16"}));
    record.decision.by = decided_by::rbl;
    EXPECT_EQ(what_decided(record),
              (std::vector<std::string>{"bl.example: HIT: the client is listed (A 127.0.0.2)"}));
    record.decision.is = verdict::accept;
    record.decision.by = decided_by::exempt;
    record.decision.rule = "to_whitelist";
    record.decision.where = "user";
    rule_record rule = sample_rule(3, "to_whitelist", outcome::exempt, outcome::hit);
    rule.fact = "recipient";
    rule.value = "a@example.org";
    rule.from = list_source{"c:/u/exempt_users", 1, "a@example.org", "whole text"};
    record.rules = {rule};
    EXPECT_EQ(what_decided(record),
              (std::vector<std::string>{
                  "recipient a@example.org matches c:/u/exempt_users:1: a@example.org (whole text)",
                  "in the recipient's own folder"}));
}

TEST(explain_words, sources) {
    const struct {
        source from;
        const char *want;
    } cases[] = {
        {{}, ""},
        {list_source{"c:/q/l", 2, "a\n", "wildcard"}, "c:/q/l:2: a\\x0a (wildcard)"},
        {list_source{"c:/q/l", 2, "a", ""}, "c:/q/l:2: a"},
        {range_source{"c:/q/r", 3, "10.0.0.0", "10.0.0.9", "x"},
         "c:/q/r record 3: 10.0.0.0 - 10.0.0.9 (x)"},
        {expression_source{"e", 4, "a+", "l", 9}, "e expression 4: a+ (l:9)"},
        {expression_source{"e", 4, "", "", 0}, "e expression 4"},
        {block_map_source{"m", 2, "10.1.0.0/16"}, "m: 10.1.0.0/16 (level 2)"},
        {sender_network_source{"f", 5, "d.example"}, "f:5: the networks of d.example"},
        {registry_source{"SOFTWARE\\X", "v"}, "registry SOFTWARE\\X (v)"},
        {folder_source{"c:/f", "n"}, "n in the folder c:/f"},
        {address_map_source{"MAP.DLL"}, "the address map of MAP.DLL"},
        {built_in_source{"[0-9]", ""}, "built in: pattern [0-9]"},
        {built_in_source{"", "default rules"}, "built in: default rules"},
        {built_in_source{}, "built in"},
        {file_source{"c:/q/f", 0}, "c:/q/f"},
        {file_source{"c:/q/f", 7}, "c:/q/f:7"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(source_text(c.from), c.want);
    }
}

TEST(explain_words, rule_sentences) {
    const auto sentence = [](outcome decision, std::optional<outcome> report,
                             std::optional<outcome> would = {}, const char *kind = "") {
        rule_record rule;
        rule.decision = decision;
        rule.report = report;
        rule.would = would;
        rule.kind = kind;
        return rule_sentence(rule);
    };
    using enum outcome;
    EXPECT_EQ(sentence(hit, hit), "HIT");
    EXPECT_EQ(sentence(hit, hit_unreported), "HIT; the replayer's line never names it");
    EXPECT_EQ(sentence(exempt, hit_unreported), "EXEMPTS; the replayer's line never names it");
    EXPECT_EQ(sentence(no_hit, {}), "no");
    EXPECT_EQ(sentence(skipped, skipped, {}, "mua"),
              "skipped: it is not for submissions of a mail program");
    EXPECT_EQ(sentence(skipped, skipped, {}, "moon"),
              "skipped: it is not for sessions of the kind moon");
    EXPECT_EQ(sentence(not_reached, hit), "not reached; the replayer reports it");
    EXPECT_EQ(sentence(not_reached, hit_unreported),
              "not reached; hits in the replayer's run, whose line never names it");
    EXPECT_EQ(sentence(not_reached, no_hit, hit), "would hit; not reached");
    EXPECT_EQ(sentence(not_reached, no_hit, undecided), "would be undecided; not reached");
    EXPECT_EQ(sentence(not_reached, no_hit, no_hit), "would not hit; not reached");
    EXPECT_EQ(sentence(not_reached, undecided), "not reached");
    EXPECT_EQ(sentence(not_enabled, no_hit), "not enabled");
    EXPECT_EQ(sentence(never, never), "never");
    EXPECT_EQ(sentence(no_hit, undecided), "no; undecided in the replayer's run");
    EXPECT_EQ(sentence(undecided, undecided), "UNDECIDED");
}

TEST(explain_words, a_rule_without_an_entry_decides_by_its_reason) {
    decision_record record;
    record.decision.rule = "require_helo";
    record.decision.by = decided_by::rule;
    record.rules = {sample_rule(10, "require_helo", outcome::hit, outcome::hit)};
    record.rules[0].reason = "there is no HELO";
    record.rules[0].fact = "helo";
    EXPECT_EQ(what_decided(record), (std::vector<std::string>{"there is no HELO", "helo (empty)"}));
}

TEST(explain_words, names_that_were_not_asked_for_are_unknown) {
    decision_record record;
    EXPECT_EQ(transaction_facts(record)[1], named_text("PTR", "(none)"));
    record.missing = {{"dns", "1.2.0.192.in-addr.arpa.", "PTR", ""}};
    EXPECT_EQ(transaction_facts(record)[1], named_text("PTR", "(unknown)"));
    record.missing.clear();
    record.dns.resize(1);
    record.dns[0].type = "PTR";
    record.dns[0].is = answer_class::failure;
    record.dns[0].status = 1460;
    EXPECT_EQ(transaction_facts(record)[1], named_text("PTR", "(unknown: the look-up failed)"));
    record.facts.ptr = {"a.example", "b.example"};
    EXPECT_EQ(transaction_facts(record)[1], named_text("PTR", "a.example, b.example"));
}

TEST(explain_words, accepted_for_want_of_answers) {
    decision_record record;
    record.decision.is = verdict::accept;
    record.decision.by = decided_by::nothing;
    record.dns.resize(3);
    EXPECT_EQ(what_decided(record), std::vector<std::string>());
    record.dns[0].is = record.dns[1].is = answer_class::failure;
    record.dns[0].status = 1460;
    record.dns[1].status = 9501; // no records: an answer
    EXPECT_EQ(what_decided(record),
              std::vector<std::string>{"1 DNS question of 3 failed; rules that need the answer do "
                                       "not hit then"});
    record.decision.by = decided_by::exempt;
    EXPECT_EQ(what_decided(record), std::vector<std::string>());
}

TEST(explain_words, what_is_missing) {
    decision_record record;
    record.missing = {
        {"dns", "a.example.", "A", ""}, {"fact", "", "", "helo"}, {"dns", "b.example.", "MX", ""}};
    EXPECT_EQ(missing_sentences(record),
              (std::vector<std::string>{"not known: helo", "not known: the answers to A "
                                                           "a.example., MX b.example."}));
}

TEST(explain_words, numbers_and_values_where_they_tell_something) {
    rule_record rule = sample_rule(9, "block_ip_in_addr", outcome::no_hit, outcome::no_hit);
    rule.fact = "helo";
    rule.value = "h";
    rule.looked_at = 1;
    EXPECT_EQ(rule_sentence(rule), "no: 1 entry looked at");
    EXPECT_EQ(rule_details(rule), std::vector<std::string>());
    rule.reason = "the one entry does not match";
    EXPECT_EQ(rule_sentence(rule), "no: the one entry does not match");
    rule.decision = outcome::undecided;
    EXPECT_EQ(rule_details(rule), std::vector<std::string>());
    rule.decision = outcome::hit;
    EXPECT_EQ(rule_details(rule), std::vector<std::string>{"helo h"});
}

TEST(explain_words, dns_answers) {
    using enum answer_class;
    const struct {
        uint32_t status;
        const char *rcode;
        answer_class is;
        std::vector<std::string> records;
        const char *want;
    } cases[] = {
        {0, "NOERROR", found, {"CNAME a.", "PTR b."}, "CNAME a., PTR b."},
        {0, "", found, {}, "found"},
        {9003, "NXDOMAIN", no_name, {}, "does not exist (NXDOMAIN)"},
        {9003, "NXDOMAIN", no_name, {"CNAME a."}, "does not exist (NXDOMAIN); CNAME a."},
        {9003, "NXDOMAIN", failure, {}, "NXDOMAIN, a failed lookup for the engine"},
        {9005, "REFUSED", no_name, {}, "REFUSED, which the engine takes for \"does not exist\""},
        {9002, "SERVFAIL", failure, {}, "SERVFAIL, a failed lookup for the engine"},
        {9501, "NOERROR", failure, {}, "no records of this type, a failed lookup for the engine"},
        {1460, "", failure, {}, "silent: no answer came in time, a failed lookup for the engine"},
        {9002,
         "",
         failure,
         {},
         "unreachable: no server could be reached, a failed lookup for the engine"},
        {9003, "", no_name, {}, "status 9003, which the engine takes for \"does not exist\""},
        {0,
         "NOERROR",
         failure,
         {"A 192.0.2.1"},
         "an answer that the guards do not count, a failed lookup for the engine; A 192.0.2.1"},
        {9005, "REFUSED", failure, {}, "REFUSED, a failed lookup for the engine"},
        {0, "", missing, {}, "no answer is at hand, and none was asked for"},
        {1460, "", missing, {}, "silent until the time for DNS questions was used up"},
        {dns_sources::status_deadline,
         "",
         missing,
         {},
         "not asked: the time for DNS questions was used up"},
    };
    for (const auto &c : cases) {
        dns_record dns;
        dns.status = c.status;
        dns.rcode = c.rcode;
        dns.is = c.is;
        dns.records = c.records;
        EXPECT_EQ(dns_answer(dns), c.want);
    }
}

TEST(explain_words, dns_summary_names_what_all_have_in_common) {
    decision_record record = rejected_sample();
    record.dns.resize(1);
    EXPECT_EQ(dns_summary(record), "1 question to 127.0.0.1:5399 over TCP, 1.1 ms");
    record.dns.push_back(record.dns[0]);
    record.dns[1].server = "192.0.2.53:53";
    EXPECT_EQ(dns_summary(record), "2 questions over TCP, 2.2 ms");
    record.dns[1].transport = "udp";
    EXPECT_EQ(dns_summary(record), "2 questions, 2.2 ms");
    record.dns[1].server = "";
    record.dns[1].transport = "";
    EXPECT_EQ(dns_summary(record), "2 questions to 127.0.0.1:5399 over TCP, 2.2 ms");
    record.dns[0].ms.reset();
    record.dns[1].ms.reset();
    EXPECT_EQ(dns_summary(record), "2 questions to 127.0.0.1:5399 over TCP");
    record.dns.clear();
    EXPECT_EQ(dns_summary(record), "");
}

TEST(explain_words, dns_summary_counts_what_went_wrong) {
    decision_record record;
    const auto add = [&](uint32_t status, const char *rcode, answer_class is) {
        dns_record dns;
        dns.status = status;
        dns.rcode = rcode;
        dns.is = is;
        record.dns.push_back(dns);
    };
    add(0, "NOERROR", answer_class::found);
    add(9003, "NXDOMAIN", answer_class::no_name);
    EXPECT_EQ(dns_summary(record), "2 questions");
    add(1460, "", answer_class::failure);
    add(1460, "", answer_class::missing);
    add(9005, "REFUSED", answer_class::no_name);
    add(9002, "", answer_class::failure);
    add(9002, "SERVFAIL", answer_class::failure);
    add(dns_sources::status_deadline, "", answer_class::missing);
    EXPECT_EQ(dns_summary(record), "8 questions; 2 silent, 1 refused, 1 unreachable, "
                                   "1 failed at the server, 1 not asked");
}

TEST(explain_words, a_report_that_failed) {
    decision_record record;
    EXPECT_EQ(replayer_line(record), "");
    record.report = report{"no list of block maps", {}, {}};
    EXPECT_EQ(replayer_line(record), "none: no list of block maps");
}

} // namespace
} // namespace quillfence::programs
