#include "case_update.h"

#include <gtest/gtest.h>

#include "../decision/random_case.h"
#include "program.h"

namespace quillfence::programs {
namespace {

using decision::expectation;

// What a case's text expects.
expectation expected_in(const std::string &text) {
    decision::json_problem problem;
    const auto read = decision::read_case(text, &problem);
    EXPECT_TRUE(read) << problem.text;
    return read ? read->expect : expectation();
}

std::string changed(const std::string &text, const expectation &now) {
    return with_expectation(text, expected_in(text), now);
}

TEST(case_update, a_value_is_replaced_where_it_stands) {
    const std::string before =
        "{ \"schema\":\"quillfence.case/1\",\r\n"
        "\t\"expect\" : { \"rule\":\"from_blacklist\" ,\"verdict\":[ \"reject\",\r\n"
        "\"accept\" ] },\r\n"
        "  \"transaction\": {\"ip\": \"192.0.2.9\" }   }\r\n";
    expectation now = expected_in(before);
    now.rule = {"require_helo"};
    EXPECT_EQ(changed(before, now),
              "{ \"schema\":\"quillfence.case/1\",\r\n"
              "\t\"expect\" : { \"rule\":\"require_helo\" ,\"verdict\":[ \"reject\",\r\n"
              "\"accept\" ] },\r\n"
              "  \"transaction\": {\"ip\": \"192.0.2.9\" }   }\r\n");
    now.verdict = {"undecided"};
    EXPECT_EQ(changed(before, now),
              "{ \"schema\":\"quillfence.case/1\",\r\n"
              "\t\"expect\" : { \"rule\":\"require_helo\" ,\"verdict\":\"undecided\" },\r\n"
              "  \"transaction\": {\"ip\": \"192.0.2.9\" }   }\r\n");
}

TEST(case_update, members_of_every_kind) {
    const std::string before = R"({"schema": "quillfence.case/1", "transaction": {},
  "expect": {"entry": "say \"hi\" \\", "rules": {"require_helo": "hit", "valid_ptr": ["hit"]},
             "maps": ["a"], "spam_hits": [ ], "notice": "x"}}
)";
    expectation now = expected_in(before);
    now.entry = {"C:\\x \"y\""};
    now.rules[1].second = {"no_hit", "undecided"};
    now.maps = std::vector<std::string>{};
    now.spam_hits = std::vector<std::string>{"require_helo", "valid_ptr"};
    EXPECT_EQ(changed(before, now), R"({"schema": "quillfence.case/1", "transaction": {},
  "expect": {"entry": "C:\\x \"y\"", "rules": {"require_helo": "hit", "valid_ptr": ["no_hit", "undecided"]},
             "maps": [], "spam_hits": ["require_helo", "valid_ptr"], "notice": "x"}}
)");
}

TEST(case_update, a_case_without_expect_gets_one_behind_the_others) {
    expectation now;
    now.verdict = {"accept"};
    now.by = {"nothing"};
    const struct {
        const char *before;
        const char *want;
    } cases[] = {
        {R"({"schema": "quillfence.case/1", "transaction": {}})",
         R"({"schema": "quillfence.case/1", "transaction": {}, "expect": {"verdict": "accept", "by": "nothing"}})"},
        {R"({"schema":"quillfence.case/1","transaction":{}})",
         R"({"schema":"quillfence.case/1","transaction":{}, "expect": {"verdict": "accept", "by": "nothing"}})"},
        {"{\r\n  \"schema\": \"quillfence.case/1\",\r\n  \"transaction\": {\"helo\": \"a,b\"},\r\n "
         " \"zonedata\": {}\r\n}\r\n",
         "{\r\n  \"schema\": \"quillfence.case/1\",\r\n  \"transaction\": {\"helo\": \"a,b\"},\r\n "
         " \"zonedata\": {},\r\n  \"expect\": {\"verdict\": \"accept\", \"by\": "
         "\"nothing\"}\r\n}\r\n"},
        {"{\"schema\": \"quillfence.case/1\",\n \"transaction\": {}\n}",
         "{\"schema\": \"quillfence.case/1\",\n \"transaction\": {},\n \"expect\": {\"verdict\": "
         "\"accept\", \"by\": \"nothing\"}\n}"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(changed(c.before, now), c.want);
    }
}

TEST(case_update, the_same_expectation_is_the_same_text) {
    const std::string text =
        R"({"schema": "quillfence.case/1", "transaction": {}, "expect": {"rule": ["valid_ptr"]}})";
    EXPECT_EQ(changed(text, expected_in(text)), text);
}

TEST(case_update, what_can_t_be_corrected_in_place_is_left_to_people) {
    const std::string bytes =
        R"({"schema": "quillfence.case/1", "transaction": {}, "expect": {"entry_bytes": "ff"}})";
    expectation now = expected_in(bytes);
    now.entry = {"x"};
    const std::string both =
        R"({"schema": "quillfence.case/1", "transaction": {}, "expect": {"entry": "?", "entry_bytes": "ff"}})";
    for (const std::string &text : {bytes, both}) {
        try {
            changed(text, now);
            ADD_FAILURE() << text;
        } catch (const failure &why) {
            EXPECT_TRUE(std::string(why.what()).ends_with("correct it by hand")) << why.what();
        }
    }
}

// Random cases and decisions: what is written expects what came, and says nothing else.
TEST(case_update, random_cases) {
    int written = 0;
    for (uint32_t seed = 0; seed < 2000; ++seed) {
        const decision::test_case before = testing::random_case(seed, seed % 4 == 0).make();
        decision::decision_record came = testing::random_record(seed + 1, false).make();
        came.decision.rule = seed % 3 ? "valid_ptr" : "";
        came.decision.where = seed % 5 ? "" : "user";
        const expectation now = before.expect.empty() ? decision::expectation_of(came)
                                                      : decision::corrected(before.expect, came);
        std::string text;
        write_case(text, before,
                   seed % 2 ? decision::json_layout::one_line : decision::json_layout::indented);
        decision::test_case want = before;
        want.expect = now;
        try {
            decision::json_problem problem;
            const std::string made = with_expectation(text, before.expect, now);
            ASSERT_TRUE(decision::read_case(made, &problem) == want) << text << '\n' << made;
            written += made != text;
        } catch (const failure &why) {
            ASSERT_NE(text.find("_bytes"), std::string::npos) << why.what() << '\n' << text;
        }
    }
    EXPECT_GT(written, 1000);
}

} // namespace
} // namespace quillfence::programs
