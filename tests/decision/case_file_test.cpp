// The case as a document: reader and writer.
#include "case_file.h"

#include <string>

#include <gtest/gtest.h>

#include "case_dns.h"
#include "random_case.h"
#include "record_writer.h"

namespace quillfence::decision {
namespace {

using testing::random_case;

std::string written(const test_case &which, json_layout layout = json_layout::one_line) {
    std::string out;
    write_case(out, which, layout);
    return out;
}

// "line: what"; "" for a case that is read.
std::string refusal(std::string_view json, const json_limits &limits = {}) {
    json_problem problem;
    const bool is_read = read_case(json, &problem, limits).has_value();
    EXPECT_EQ(is_read, problem.text.empty());
    return problem.text.empty() ? "" : std::to_string(problem.line) + ": " + problem.text;
}

// A short case with further members in it.
std::string short_case(const std::string &members) {
    return "{\"schema\": \"quillfence.case/1\",\n \"transaction\": {},\n " + members + "}";
}

std::optional<test_case> read_short(const std::string &members) {
    json_problem problem;
    auto made = read_case(short_case(members), &problem);
    EXPECT_TRUE(made) << problem.text;
    return made;
}

std::string changed(std::string json, const std::string &from, const std::string &to) {
    const size_t at = json.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return json.replace(at, from.size(), to);
}

// --- by hand ---

test_case sample() {
    test_case made;
    made.description = "a friend";
    made.record.id = "7";
    made.record.config.user_dir = "c:/users/bob";
    made.record.transaction.ip = "198.51.100.7";
    made.record.transaction.sender = "bob@friend.example";
    made.record.extra = {{"ticket", "12"}};
    made.zonedata = {{"7.100.51.198.in-addr.arpa", {{"PTR", "mail.friend.example"}}},
                     {"gone.example", {{"", "NXDOMAIN"}}},
                     {"empty.example", {}},
                     {"friend.example",
                      {{"MX", "10 mail.friend.example"},
                       {"MX", "mail2.friend.example"},
                       {"A", "192.0.2.1"},
                       {"TXT", "v=spf1 -all"},
                       {"", "TIMEOUT"}}}};
    made.server.registry = {
        {"SOFTWARE\\Mail Enable", "Configuration Directory", "REG_SZ", "C:\\Mail", false},
        {"SOFTWARE\\Mail Enable", "Status", "REG_DWORD", "1", false},
        {"SOFTWARE\\Mail Enable", "", "", "", false},
        {"SOFTWARE\\Mail Enable", "gone", "", "", true},
        {"SOFTWARE\\gone", std::nullopt, "", "", true}};
    made.server.address_map = {{"bob@x.example", "[SF:x.example/bob]", false},
                               {"al@x.example", "", true}};
    made.server.folders = {{"C:\\Mail\\Whitelist", {"b.LST", "a.LST"}, false},
                           {"C:\\gone", {}, true}};
    made.expect.verdict = {"accept"};
    made.expect.rule = {"from_whitelist", "to_whitelist"};
    made.expect.entry = {"*@friend.example\xff"};
    made.expect.rules = {{"from_blacklist", {"not_reached"}}};
    made.expect.maps.emplace();
    return made;
}

constexpr char sample_json[] = R"({
  "schema": "quillfence.case/1",
  "description": "a friend",
  "id": "7",
  "config": {
    "user_dir": "c:/users/bob"
  },
  "transaction": {
    "stage": "RCPT",
    "ip": "198.51.100.7",
    "sender": "bob@friend.example"
  },
  "extra": {
    "ticket": 12
  },
  "zonedata": {
    "7.100.51.198.in-addr.arpa": [{"PTR": "mail.friend.example"}],
    "gone.example": "NXDOMAIN",
    "empty.example": [],
    "friend.example": [{"MX": [10, "mail.friend.example"]}, {"MX": "mail2.friend.example"}, {"A": "192.0.2.1"}, {"TXT": "v=spf1 -all"}, "TIMEOUT"]
  },
  "registry": [
    {"key": "SOFTWARE\\Mail Enable", "value": "Configuration Directory", "type": "REG_SZ", "data": "C:\\Mail"},
    {"key": "SOFTWARE\\Mail Enable", "value": "Status", "type": "REG_DWORD", "data": "1"},
    {"key": "SOFTWARE\\Mail Enable", "value": ""},
    {"key": "SOFTWARE\\Mail Enable", "value": "gone", "missing": true},
    {"key": "SOFTWARE\\gone", "missing": true}
  ],
  "address_map": [
    {"address": "bob@x.example", "destination": "[SF:x.example/bob]"},
    {"address": "al@x.example", "missing": true}
  ],
  "folders": [
    {"folder": "C:\\Mail\\Whitelist", "names": ["b.LST", "a.LST"]},
    {"folder": "C:\\gone", "missing": true}
  ],
  "expect": {
    "verdict": "accept",
    "rule": ["from_whitelist", "to_whitelist"],
    "entry": "*@friend.example�",
    "entry_bytes": "2a40667269656e642e6578616d706c65ff",
    "rules": {
      "from_blacklist": "not_reached"
    },
    "maps": []
  }
})";

TEST(case_file, by_hand) {
    EXPECT_EQ(written(sample(), json_layout::indented), sample_json);
    json_problem problem;
    EXPECT_TRUE(read_case(sample_json, &problem) == sample()) << problem.text;
}

TEST(case_file, the_least_that_is_a_case) {
    const auto made = read_short("\"later\": 1");
    EXPECT_TRUE(made == test_case()) << "all is absent, and the stage is RCPT";
    EXPECT_EQ(written(*made), R"({"schema":"quillfence.case/1","transaction":{"stage":"RCPT"}})");
}

TEST(case_file, a_record_is_a_case_but_for_its_name) {
    std::string json;
    const decision_record record = testing::random_record(11, true).make();
    write_record(json, record, record_form::whole);
    test_case captured;
    captured.captured = true;
    captured.record = record;
    EXPECT_EQ(changed(json, "quillfence.decision/1", "quillfence.case/1"), written(captured));
}

TEST(case_file, a_record_is_a_short_case) {
    const decision_record &record = sample().record;
    std::string json;
    write_record(json, record, record_form::brief);
    test_case made;
    made.record.id = record.id;
    made.record.time = record.time;
    made.record.config.user_dir = record.config.user_dir;
    made.record.transaction = record.transaction;
    made.record.extra = record.extra;
    made.record.dns = record.dns;
    json_problem problem;
    const auto read = read_case(json, &problem);
    ASSERT_TRUE(read) << problem.text;
    EXPECT_TRUE(*read == made) << written(*read) << written(made);
    EXPECT_EQ(refusal("{\"schema\": \"quillfence.decision/1\"}"),
              "1: the document has no member \"id\"");
}

// --- random cases ---

TEST(case_file, random_cases_come_back) {
    for (uint32_t seed = 0; seed < 3000; ++seed) {
        const test_case made = random_case(seed, seed % 2).make();
        for (const json_layout layout : {json_layout::one_line, json_layout::indented}) {
            json_problem problem;
            const std::string json = written(made, layout);
            const auto got = read_case(json, &problem);
            ASSERT_TRUE(got == made) << problem.text << "\n" << json;
        }
    }
}

TEST(case_file, no_beginning_of_a_case_is_taken_for_one) {
    for (const uint32_t seed : {1u, 2u, 3u, 4u}) {
        const std::string json = written(random_case(seed, true).make());
        for (size_t size = 0; size < json.size(); ++size) {
            ASSERT_NE(refusal(std::string_view(json).substr(0, size)), "") << size;
        }
    }
}

// One byte changed, taken out or put in: either it is refused, or what was read can be written and
// read again, and its answers can be given.
TEST(case_file, damaged_cases) {
    int read = 0;
    for (uint32_t seed = 0; seed < 5000; ++seed) {
        random_case random(seed, seed % 2);
        std::string json = written(random.make());
        const uint32_t at = random.below(static_cast<uint32_t>(json.size()));
        if (random.below(3)) {
            json[at] = static_cast<char>(random.below(256));
        } else if (random.below(2)) {
            json.erase(at, 1);
        } else {
            json.insert(at, 1, "{}[]\",:\\0"[random.below(9)]);
        }
        json_problem problem;
        const auto got = read_case(json, &problem);
        ASSERT_EQ(got.has_value(), problem.text.empty());
        if (!got) {
            continue;
        }
        ++read;
        ASSERT_TRUE(read_case(written(*got), &problem) == got) << json;
        dns_sources::recorded_source recorded;
        ASSERT_EQ(add_answers(recorded, got->record.dns), std::nullopt);
        dns_sources::zone_source zone;
        ASSERT_EQ(add_zone_data(zone, got->zonedata.value_or(std::vector<zone_name>())),
                  std::nullopt);
    }
    EXPECT_GT(read, 500) << "most changes in a text leave a case";
}

// --- what is refused ---

TEST(case_file, wrong_members_are_named) {
    const struct {
        const char *from;
        const char *to;
        const char *want;
    } cases[] = {
        {"case/1", "case/2",
         "2: schema: is a version that this program does not know; it reads \"quillfence.case/1\""},
        {"quillfence.case/1", "1", "2: schema: is not that of a case"},
        {"  \"schema\": \"quillfence.case/1\",\n", "", "1: the document has no member \"schema\""},
        {"\"a friend\"", "1", "3: description: is not a text"},
        {"\"extra\"", "\"dns\": [], \"extra\"",
         "16: zonedata: stands beside \"dns\": a case has one of the two"},
        {"\"extra\"", "\"decision\": {}, \"extra\"",
         "16: zonedata: stands beside \"decision\": a captured case has \"dns\""},
        {"\"extra\"", "\"description\": \"\", \"extra\"",
         "47: a member's name stands twice in the object that ends here"},
        {"\"ip\": \"198.51.100.7\"", "\"ip\": 1", "10: transaction.ip: is not a text"},
        {"{\"PTR\": \"mail.friend.example\"}", "{\"PTR\": \"mail..example\"}",
         "17: zonedata.7.100.51.198.in-addr.arpa[0]: mail..example is no domain name"},
        {"{\"PTR\": \"mail.friend.example\"}", "{\"PTR\": [\"a.example\"]}",
         "17: zonedata.7.100.51.198.in-addr.arpa[0].PTR: is not a text"},
        {"{\"PTR\":", "{\"PRT\":",
         "17: zonedata.7.100.51.198.in-addr.arpa[0]: PRT is not one of A, AAAA, CNAME, MX, NS and "
         "PTR"},
        {"{\"PTR\":", "{\"A\": \"1.2.3.4\", \"PTR\":",
         "17: zonedata.7.100.51.198.in-addr.arpa[0]: is neither a word nor one record"},
        {"{\"PTR\":", "1, {\"PTR\":",
         "17: zonedata.7.100.51.198.in-addr.arpa[0]: is neither a word nor one record"},
        {"{\"PTR\":", "{\"\":",
         "17: zonedata.7.100.51.198.in-addr.arpa[0]: has a record without a type"},
        {"\"NXDOMAIN\"", "\"NXDOMIAN\"",
         "18: zonedata.gone.example: NXDOMIAN is not one of NODATA, NXDOMAIN, REFUSED, SERVFAIL "
         "and "
         "TIMEOUT"},
        {"\"NXDOMAIN\"", "{\"A\": \"1.2.3.4\"}",
         "18: zonedata.gone.example: is neither a word nor a list of records"},
        {"\"NXDOMAIN\"", "[\"NXDOMAIN\", {\"A\": \"1.2.3.4\"}]",
         "18: zonedata.gone.example[1]: gone.example has records and is NXDOMAIN"},
        {"\"TIMEOUT\"", "\"TIMEOUT\", \"SERVFAIL\"",
         "20: zonedata.friend.example[5]: friend.example has two such words"},
        {"gone.example", "gone..example",
         "18: zonedata.gone..example: gone..example is no domain name"},
        {"gone.example", "FRIEND.example.",
         "20: zonedata.friend.example: stands there already, in other letters or with another end"},
        {"[10, \"mail", "[65536, \"mail",
         "20: zonedata.friend.example[0]: 65536 mail.friend.example is no mail exchanger (\"10 "
         "mail.example.org\")"},
        {"[10, \"mail", "[1e1, \"mail",
         "20: zonedata.friend.example[0]: 1e1 mail.friend.example is no mail exchanger (\"10 "
         "mail.example.org\")"},
        {"[10, \"mail", "[10, 11, \"mail",
         "20: zonedata.friend.example[0].MX: is not a preference and a name"},
        {"[10, \"mail.friend.example\"]", "[10, 11]",
         "20: zonedata.friend.example[0].MX[1]: is not a text"},
        {"192.0.2.1", "192.0.2.256",
         "20: zonedata.friend.example[2]: 192.0.2.256 is no IPv4 address"},
        {"\"type\": \"REG_SZ\", \"data\"", "\"data\"",
         "23: registry[0]: has one of \"type\" and \"data\" without the other"},
        {", \"data\": \"1\"", "",
         "24: registry[1]: has one of \"type\" and \"data\" without the other"},
        {"REG_SZ", "REG_TEXT", "23: registry[0].type: is no type of a registry value"},
        {"\"data\": \"1\"", "\"data\": \"one\"", "24: registry[1].data: is no number of that type"},
        {"\"data\": \"1\"", "\"data\": \"4294967296\"",
         "24: registry[1].data: is no number of that type"},
        {"\"data\": \"1\"", "\"data\": \"1\", \"missing\": true",
         "24: registry[1]: has data, and no value that is there"},
        {"\"value\": \"Status\", ", "", "24: registry[1]: has data, and no value that is there"},
        {"\"key\": \"SOFTWARE\\\\gone\", ", "", "27: registry[4]: has no member \"key\""},
        {"\"key\": \"SOFTWARE\\\\gone\"", "\"key_bytes\": \"4100\"",
         "27: registry[4].key_bytes: holds a NUL"},
        {"\"destination\": \"[SF:x.example/bob]\"", "\"x\": 1",
         "30: address_map[0]: has neither \"destination\" nor \"missing\""},
        {"al@x.example\"", "al@x.example\", \"destination\": \"\"",
         "31: address_map[1]: is missing, and has \"destination\""},
        {", \"names\": [\"b.LST\", \"a.LST\"]", "",
         "34: folders[0]: has neither \"names\" nor \"missing\""},
        {"C:\\\\gone\"", "C:\\\\gone\", \"names\": []",
         "35: folders[1]: is missing, and has \"names\""},
        {"\"missing\": true", "\"missing\": 1",
         "26: registry[3].missing: is neither true nor false"},
        {"\"accept\"", "\"acept\"", "38: expect.verdict: is no verdict"},
        {"\"accept\"", "[]", "38: expect.verdict: is an empty list, which nothing could meet"},
        {"\"accept\"", "[\"accept\", \"hit\"]", "38: expect.verdict[1]: is no verdict"},
        {"\"accept\"", "{\"is\": \"accept\"}", "38: expect.verdict: is not a text"},
        {"\"verdict\"", "\"verdikt\"", "38: expect.verdikt: is nothing that can be expected"},
        {"\"verdict\": \"accept\"", "\"verdict_bytes\": \"6869\"",
         "38: expect.verdict_bytes: is nothing that can be expected"},
        {"\"verdict\": \"accept\"", "\"by\": \"rules\"", "38: expect.by: is nothing that decides"},
        {"\"verdict\": \"accept\"", "\"where\": \"home\"",
         "38: expect.where: is neither \"base\" nor \"user\""},
        {"\"to_whitelist\"", "\"to_whitlist\"", "39: expect.rule[1]: is no rule"},
        {"\"from_blacklist\":", "\"from_blak\":", "43: expect.rules.from_blak: is no rule"},
        {"\"not_reached\"", "\"no hit\"",
         "43: expect.rules.from_blacklist: is no outcome of a rule"},
        {"\"not_reached\"", "[]",
         "43: expect.rules.from_blacklist: is an empty list, which nothing could meet"},
        {"\"from_blacklist\": \"not_reached\"", "", "42: expect.rules: names no rule"},
        {"\"maps\": []", "\"maps\": \"bots.bms\"", "45: expect.maps: is not an array"},
        {"\"maps\": []", "\"maps\": [1]", "45: expect.maps[0]: is not a text"},
        {"example\xef\xbf\xbd\",", "example\xff\",", "40: a text is not UTF-8"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(refusal(changed(sample_json, c.from, c.to)), c.want) << c.to;
    }
    EXPECT_EQ(refusal("[]"), "1: the document is not an object");
    EXPECT_EQ(refusal(short_case("\"expect\": {}")), "3: expect: expects nothing");
    const auto none = read_short(R"("expect": {"rule": "", "where": ["", "user"]})");
    ASSERT_TRUE(none) << "no rule, or no place, may be expected";
    EXPECT_EQ(none->expect.rule, std::vector<std::string>{""});
    EXPECT_EQ(refusal(short_case("\"zonedata\": []")), "3: zonedata: is not an object");
    EXPECT_EQ(refusal(changed(short_case("\"x\": 1"), "\"transaction\"", "\"session\"")),
              "1: the document has no member \"transaction\"");
}

// A case with a decision is a record, and a record is whole.
TEST(case_file, a_captured_case_is_whole) {
    test_case captured;
    captured.captured = true;
    const std::string whole = written(captured, json_layout::indented);
    EXPECT_EQ(refusal(whole), "");
    for (const char *const name : {"id", "engine", "config", "transaction", "facts", "rules",
                                   "block_maps", "dns_block_lists", "dns", "missing", "notes"}) {
        const std::string quoted = std::string("\"") + name + "\":";
        EXPECT_EQ(refusal(changed(whole, quoted, "\"x" + quoted.substr(1))),
                  "1: the document has no member \"" + std::string(name) + '"');
    }
    EXPECT_EQ(refusal(changed(whole, "\"base\"", "\"bas\"")), "5: config: has no member \"base\"");
}

TEST(case_file, answers_that_no_source_could_give) {
    const std::string good = short_case(R"("dns": [
      {"n": 0, "name": "a.example.", "type": "MX", "transport": "tcp", "status": 0,
       "rcode": "NOERROR", "class": "found", "records": ["MX 10 m.example."], "attempt": 1,
       "used_by": []}])");
    EXPECT_EQ(refusal(good), "");
    EXPECT_EQ(refusal(changed(good, "\"MX\"", "\"MAIL\"")),
              "4: dns[0]: the type \"MAIL\" is not known");
    EXPECT_EQ(refusal(changed(good, "\"tcp\"", "\"sctp\"")),
              "4: dns[0]: the transport \"sctp\" is not known");
    EXPECT_EQ(refusal(changed(good, "NOERROR", "FINE")),
              "4: dns[0]: the response code \"FINE\" is not known");
    EXPECT_EQ(refusal(changed(good, "MX 10", "MAIL 10")),
              "4: dns[0]: the record type \"MAIL\" is not known");
    EXPECT_EQ(refusal(changed(good, "\"found\"", "\"no_name\"")),
              "4: dns[0]: class and status do not say the same");
    EXPECT_EQ(refusal(changed(good, "\"found\"", "\"lost\"")),
              "5: dns[0].class: is none of the known words");
    EXPECT_EQ(refusal(changed(good, "\"used_by\"", "\"used\"")),
              "4: dns[0]: has no member \"used_by\"");
}

TEST(case_file, size_depth_and_number_of_values_have_limits) {
    const std::string json = short_case("\"x\": [[1, 2]]");
    EXPECT_EQ(refusal(json, {json.size(), 3, 7}), "");
    EXPECT_EQ(refusal(json, {json.size() - 1, 3, 7}), "1: the document is too large");
    EXPECT_EQ(refusal(json, {json.size(), 2, 7}), "3: the document is nested too deep");
    EXPECT_EQ(refusal(json, {json.size(), 3, 6}), "3: the document holds too many values");
}

// --- what is accepted ---

TEST(case_file, later_members_are_passed_over) {
    for (const char *const place :
         {"\"id\"", "\"user_dir\"", "\"ip\"", "\"destination\"", "\"names\"", "\"address_map\""}) {
        json_problem problem;
        const auto got =
            read_case(changed(sample_json, place, "\"later\": {\"x\": [1]}, " + std::string(place)),
                      &problem);
        EXPECT_TRUE(got == sample()) << problem.text;
    }
}

TEST(case_file, words_and_shapes_of_the_public_suites) {
    const auto made = read_short(R"("zonedata": {
        "example.com": ["TIMEOUT"],
        "a.example.com.": [{"SPF": "v=spf1 -all"}, {"TXT": ["v=spf1 ", "ip4:192.0.2.1"]},
                           {"SPF": "NONE"}, {"AAAA": "CAFE:BABE::1"}],
        "Null.example.com": [{"mx": [0, ""]}], "slow.example.com": "timeout",
        "ns.example.com": [{"NS": "a.example.com"}, {"CNAME": "b.example.com"}]})");
    const std::vector<zone_name> want = {
        {"example.com", {{"", "TIMEOUT"}}},
        {"a.example.com.",
         {{"SPF", "v=spf1 -all"},
          {"TXT", "v=spf1 ip4:192.0.2.1"},
          {"SPF", "NONE"},
          {"AAAA", "CAFE:BABE::1"}}},
        {"Null.example.com", {{"MX", "0 ."}}},
        {"slow.example.com", {{"", "TIMEOUT"}}},
        {"ns.example.com", {{"NS", "a.example.com"}, {"CNAME", "b.example.com"}}}};
    EXPECT_EQ(made->zonedata, want);
}

TEST(case_file, expected_bytes_win_over_the_texts) {
    const auto made = read_short(R"("expect": {"notice_bytes": ["ff", "61"], "notice": "b",
                                               "maps": [], "maps_bytes": ["fe"]})");
    EXPECT_EQ(made->expect.notice, (std::vector<std::string>{"\xff", "a"}));
    EXPECT_EQ(made->expect.maps, std::vector<std::string>{"\xfe"});
}

TEST(case_file, types_of_registry_values) {
    EXPECT_EQ(registry_type_word(1), "REG_SZ");
    EXPECT_EQ(registry_type_word(4), "REG_DWORD");
    EXPECT_EQ(registry_type_word(7), "REG_MULTI_SZ");
    EXPECT_EQ(registry_type_word(11), "REG_QWORD");
    EXPECT_EQ(registry_type_word(12), "");
    EXPECT_EQ(registry_type_of_word("REG_SZ"), 1u);
    EXPECT_EQ(registry_type_of_word("REG_QWORD"), 11u);
    EXPECT_EQ(registry_type_of_word("reg_sz"), std::nullopt);
    EXPECT_EQ(registry_type_of_word(""), std::nullopt);
}

} // namespace
} // namespace quillfence::decision
