// The record as a document: writer and reader.
#include "record_reader.h"

#include <string>

#include <gtest/gtest.h>

#include "random_record.h"
#include "record_words.h"
#include "record_writer.h"

namespace quillfence::decision {
namespace {

using testing::random_record;

std::string written(const decision_record &record, record_form form = record_form::whole,
                    json_layout layout = json_layout::one_line) {
    std::string out;
    write_record(out, record, form, layout);
    return out;
}

std::string refusal(std::string_view json) {
    json_problem problem;
    const bool is_read = read_record(json, &problem).has_value();
    EXPECT_EQ(is_read, problem.text.empty());
    return problem.text.empty() ? "" : std::to_string(problem.line) + ": " + problem.text;
}

// A refused message, small enough to be written out by hand.
decision_record sample() {
    decision_record r;
    r.id = "7";
    r.time = "2026-11-22T04:51:13.123Z";
    r.engine = {"1.0.0", "linux-x86_64"};
    r.config.base = "c:/quillfence/";
    r.config.files.resize(2);
    r.config.files[0].path = "c:/quillfence/from_blacklist";
    r.config.files[0].bytes = 93;
    r.config.files[1].path = "c:/quillfence/helo_blacklist";
    r.config.files[1].missing = true;
    r.transaction.ip = "192.0.2.1";
    r.transaction.tls = false;
    r.transaction.helo = "";
    r.transaction.sender = "x\xff@spammer.example";
    r.extra = {{"queue", "{\"id\":1}"}};
    r.facts.routable = true;
    r.facts.ptr = {"a.example", "b\xfe.example"};
    r.decision.is = verdict::reject;
    r.decision.by = decided_by::rule;
    r.decision.rule = r.decision.hit_name = "from_blacklist";
    r.decision.notice = "no";
    r.report = report{};
    rule_record rule;
    rule.n = 23;
    rule.rule = "from_blacklist";
    rule.decision = outcome::hit;
    rule.report = outcome::hit_unreported;
    rule.fact = "helo";
    rule.from = list_source{"c:/quillfence/from_blacklist", 2, "*@spammer.example", "wildcard"};
    rule.dns = {0, 3};
    rule.us = 14;
    r.rules = {rule};
    rule.rule = "helo_blacklist";
    rule.decision = outcome::no_hit;
    rule.report = outcome::not_enabled;
    rule.from = built_in_source{"", "default"};
    rule.dns = {};
    rule.us = {};
    r.rules.push_back(rule);
    r.dns_block_lists = {{"bl.example", outcome::no_hit, block_list_answer::refused, {}, {7}}};
    dns_record dns;
    dns.name = "1.2.0.192.in-addr.arpa.";
    dns.type = "PTR";
    dns.is = answer_class::no_name;
    dns.status = 9003;
    dns.ms = 12.4;
    r.dns = {dns};
    r.missing = {{"fact", "", "", "recipient"}};
    return r;
}

constexpr char sample_whole[] = R"({
  "schema": "quillfence.decision/1",
  "id": "7",
  "time": "2026-11-22T04:51:13.123Z",
  "engine": {"version": "1.0.0", "build": "linux-x86_64"},
  "config": {
    "base": "c:/quillfence/",
    "files": [
      {"path": "c:/quillfence/from_blacklist", "bytes": 93},
      {"path": "c:/quillfence/helo_blacklist", "missing": true}
    ]
  },
  "transaction": {
    "stage": "RCPT",
    "ip": "192.0.2.1",
    "tls": false,
    "helo": "",
    "sender": "x�@spammer.example",
    "sender_bytes": "78ff407370616d6d65722e6578616d706c65"
  },
  "extra": {
    "queue": {"id":1}
  },
  "facts": {"localhost": false, "ipv6": false, "routable": true, "bounce": false, "ptr": ["a.example", "b�.example"], "ptr_bytes": ["612e6578616d706c65", "62fe2e6578616d706c65"]},
  "decision": {
    "verdict": "reject",
    "by": "rule",
    "rule": "from_blacklist",
    "hit_name": "from_blacklist",
    "notice": "no"
  },
  "report": {"spam_hits": [], "bms_hits": []},
  "rules": [
    {
      "n": 23,
      "rule": "from_blacklist",
      "decision": "hit",
      "report": "hit_unreported",
      "fact": "helo",
      "value": "",
      "source": {"file": "c:/quillfence/from_blacklist", "line": 2, "entry": "*@spammer.example", "how": "wildcard"},
      "dns": [0, 3],
      "us": 14
    },
    {
      "n": 23,
      "rule": "helo_blacklist",
      "decision": "no_hit",
      "report": "not_enabled",
      "fact": "helo",
      "value": "",
      "source": {"file": "<built-in>", "selection": "default"}
    }
  ],
  "block_maps": [],
  "dns_block_lists": [
    {"zone": "bl.example", "outcome": "no_hit", "answer": "refused", "dns": [7]}
  ],
  "dns": [
    {
      "n": 0,
      "name": "1.2.0.192.in-addr.arpa.",
      "type": "PTR",
      "status": 9003,
      "class": "no_name",
      "records": [],
      "attempt": 1,
      "ms": 12.4,
      "used_by": []
    }
  ],
  "missing": [
    {"what": "fact", "fact": "recipient"}
  ],
  "notes": [],
  "errors": []
})";

constexpr char sample_brief[] =
    R"({"schema":"quillfence.decision/1","id":"7","time":"2026-11-22T04:51:13.123Z",)"
    R"("engine":{"version":"1.0.0","build":"linux-x86_64"},"config":{"base":"c:/quillfence/"},)"
    R"("transaction":{"stage":"RCPT","ip":"192.0.2.1","tls":false,"helo":"",)"
    R"("sender":"x�@spammer.example","sender_bytes":"78ff407370616d6d65722e6578616d706c65"},)"
    R"("extra":{"queue":{"id":1}},"facts":{"localhost":false,"ipv6":false,"routable":true,)"
    R"("bounce":false,"ptr":["a.example","b�.example"],)"
    R"("ptr_bytes":["612e6578616d706c65","62fe2e6578616d706c65"]},)"
    R"("decision":{"verdict":"reject","by":"rule","rule":"from_blacklist",)"
    R"("hit_name":"from_blacklist","notice":"no"},"report":{"spam_hits":[],"bms_hits":[]},)"
    R"("rules":[{"n":23,"rule":"from_blacklist","decision":"hit","report":"hit_unreported",)"
    R"("fact":"helo","value":"","source":{"file":"c:/quillfence/from_blacklist","line":2,)"
    R"("entry":"*@spammer.example","how":"wildcard"},"dns":[0,3]}],"block_maps":[],)"
    R"("dns_block_lists":[{"zone":"bl.example","outcome":"no_hit","answer":"refused","dns":[7]}],)"
    R"("dns":[{"n":0,"name":"1.2.0.192.in-addr.arpa.","type":"PTR","status":9003,)"
    R"("class":"no_name","records":[],"attempt":1,"ms":12.4,"used_by":[]}],)"
    R"("missing":[{"what":"fact","fact":"recipient"}],"notes":[]})";

TEST(decision_record, whole_form_by_hand) {
    EXPECT_EQ(written(sample(), record_form::whole, json_layout::indented), sample_whole);
    json_problem problem;
    EXPECT_TRUE(read_record(sample_whole, &problem) == sample()) << problem.text;
}

TEST(decision_record, brief_form_by_hand) {
    EXPECT_EQ(written(sample(), record_form::brief), sample_brief);
}

TEST(decision_record, which_rules_the_brief_form_tells) {
    const std::vector<outcome> told = {outcome::hit, outcome::exempt, outcome::hit_unreported,
                                       outcome::undecided};
    for (size_t i = 0; i < words<outcome>().size(); ++i) {
        const auto one = static_cast<outcome>(i);
        const bool want = std::find(told.begin(), told.end(), one) != told.end();
        rule_record rule;
        rule.decision = one;
        EXPECT_EQ(is_told_briefly(rule), want);
        rule.decision = outcome::no_hit;
        EXPECT_FALSE(is_told_briefly(rule));
        rule.report = one;
        EXPECT_EQ(is_told_briefly(rule), want);
        rule.report.reset();
        rule.would = one;
        EXPECT_EQ(is_told_briefly(rule), want);
    }
}

// What the brief form leaves of a record.
decision_record shortened(decision_record r) {
    r.config.files.clear();
    std::erase_if(r.rules, [](const rule_record &rule) { return !is_told_briefly(rule); });
    for (rule_record &rule : r.rules) {
        rule.us.reset();
    }
    return r;
}

TEST(decision_record, random_records_come_back) {
    for (uint32_t seed = 0; seed < 3000; ++seed) {
        const decision_record record = random_record(seed, seed % 2).make();
        for (const json_layout layout : {json_layout::one_line, json_layout::indented}) {
            json_problem problem;
            const std::string whole = written(record, record_form::whole, layout);
            ASSERT_TRUE(read_record(whole, &problem) == record) << problem.text << "\n" << whole;
            const std::string brief = written(record, record_form::brief, layout);
            ASSERT_TRUE(read_record(brief, &problem) == shortened(record)) << problem.text << "\n"
                                                                           << brief;
        }
        ASSERT_EQ(written(record).find('\n'), std::string::npos);
    }
}

TEST(decision_record, no_beginning_of_a_record_is_taken_for_one) {
    const std::string whole = written(random_record(1, true).make());
    for (size_t size = 0; size < whole.size(); ++size) {
        ASSERT_NE(refusal(std::string_view(whole).substr(0, size)), "") << size;
    }
}

// One byte changed, taken out or put in: either it is refused, or what was read can be written and
// read again.
TEST(decision_record, damaged_records) {
    for (uint32_t seed = 0; seed < 5000; ++seed) {
        random_record random(seed, seed % 2);
        std::string json = written(random.make());
        const uint32_t at = random.below(static_cast<uint32_t>(json.size()));
        if (random.below(3)) {
            json[at] = static_cast<char>(random.below(256));
        } else if (random.some()) {
            json.erase(at, 1);
        } else {
            json.insert(at, 1, "{}[]\",:\\0"[random.below(9)]);
        }
        json_problem problem;
        const auto read = read_record(json, &problem);
        ASSERT_EQ(read.has_value(), problem.text.empty());
        if (read) {
            ASSERT_TRUE(read_record(written(*read), &problem) == read) << json;
        }
    }
}

std::string changed(std::string json, const std::string &from, const std::string &to) {
    const size_t at = json.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return json.replace(at, from.size(), to);
}

TEST(decision_record, wrong_members_are_named) {
    const struct {
        const char *from;
        const char *to;
        const char *want;
    } cases[] = {
        {"\"schema\": \"quillfence.decision/1\",", "", "1: the document has no member \"schema\""},
        {"decision/1", "decision/2",
         "2: schema: is a version that this program does not know; it reads "
         "\"quillfence.decision/1\""},
        {"decision/1", "decision/1.5",
         "2: schema: is a version that this program does not know; it reads "
         "\"quillfence.decision/1\""},
        {"quillfence.decision/1", "quillfence.case/1",
         "2: schema: is not that of a decision record"},
        {"\"id\": \"7\"", "\"id\": 7", "3: id: is not a text"},
        {"  \"id\": \"7\",\n", "", "1: the document has no member \"id\""},
        {"\"line\": 2", "\"line\": -1",
         "41: rules[0].source.line: is not a whole number from 0 to 4294967295"},
        {"\"line\": 2", "\"line\": 4294967296",
         "41: rules[0].source.line: is not a whole number from 0 to 4294967295"},
        {"\"line\": 2", "\"line\": 2.5",
         "41: rules[0].source.line: is not a whole number from 0 to 4294967295"},
        {"\"line\": 2", "\"line\": \"2\"",
         "41: rules[0].source.line: is not a whole number from 0 to 4294967295"},
        {"\"line\": 2, ", "", "41: rules[0].source: has no member \"line\""},
        {"{\"file\": \"<built-in>\", ", "{\"fil\": \"<built-in>\", ",
         "52: rules[1].source: names no entry of a known kind"},
        {"{\"file\": \"<built-in>\", \"selection\": \"default\"}", "\"<built-in>\"",
         "52: rules[1].source: is not an object"},
        {"\"decision\": \"hit\"", "\"decision\": \"Hit\"",
         "37: rules[0].decision: is none of the known words"},
        {"\"tls\": false", "\"tls\": 0", "16: transaction.tls: is neither true nor false"},
        {"\"ms\": 12.4", "\"ms\": 1e999", "68: dns[0].ms: is not a number that fits"},
        {"\"dns\": [0, 3]", "\"dns\": {}", "42: rules[0].dns: is not an array"},
        {"78ff", "78f",
         "19: transaction.sender_bytes: is not an even number of hexadecimal digits"},
        {"78ff", "78fg",
         "19: transaction.sender_bytes: is not an even number of hexadecimal digits"},
        {"78ff", "7800", "19: transaction.sender_bytes: holds a NUL"},
        {"\"x�@", "\"x\\u0000@", "18: a text holds \\u0000"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(refusal(changed(sample_whole, c.from, c.to)), c.want) << c.to;
    }
    EXPECT_EQ(refusal("[]"), "1: the document is not an object");
}

TEST(decision_record, unknown_members_are_passed_over) {
    json_problem problem;
    const std::string json = changed(sample_whole, "\"id\"", "\"later\": {\"x\": [1]}, \"id\"");
    EXPECT_TRUE(read_record(json, &problem) == sample()) << problem.text;
}

TEST(decision_record, bytes_win_over_the_text) {
    json_problem problem;
    const auto got = read_record(
        changed(sample_whole, "\"sender\": \"x�@spammer.example\",", "\"sender\": \"other\","),
        &problem);
    EXPECT_TRUE(got == sample()) << problem.text;
    const auto alone =
        read_record(changed(sample_whole, "\"sender\": \"x�@spammer.example\",", ""), &problem);
    EXPECT_TRUE(alone == sample()) << problem.text;
}

TEST(decision_record, a_transaction_alone) {
    const std::string json = R"({"ip":"192.0.2.1","queue":[1, 2],"sender":"","helo_bytes":"ff"})";
    json_problem problem;
    const json_document document(json, &problem);
    std::vector<extra_member> extra;
    const auto got = read_transaction(document, 0, &extra, &problem);
    transaction want;
    want.ip = "192.0.2.1";
    want.sender = "";
    want.helo = "\xff";
    EXPECT_TRUE(got == want) << problem.text;
    EXPECT_EQ(extra, (std::vector<extra_member>{{"queue", "[1,2]"}}));
    std::string out;
    write_transaction(out, want);
    EXPECT_EQ(out, "{\"stage\":\"RCPT\",\"ip\":\"192.0.2.1\",\"helo\":\"\xef\xbf\xbd\","
                   "\"helo_bytes\":\"ff\",\"sender\":\"\"}");
}

} // namespace
} // namespace quillfence::decision
