// The two reports of a test run, from results made by hand.
#include <gtest/gtest.h>

#include "case_result.h"
#include "junit_report.h"
#include "tap_report.h"

namespace quillfence::programs {
namespace {

case_result good() {
    case_result result;
    result.path = "cases/a.json";
    result.is = case_outcome::as_expected;
    result.seconds = 0.0014;
    return result;
}

case_result bad() {
    case_result result = good();
    result.path = "cases/b.json";
    result.description = "a friend";
    result.is = case_outcome::not_as_expected;
    result.wrong = {{"verdict", "accept", "reject"}, {"rule", "(none)", "from_blacklist"}};
    result.decided = "REJECT by from_blacklist";
    result.entry = "c:/quillfence/from_blacklist:2: *@spammer.example (wildcard)";
    result.reason = "the sender matches an entry";
    result.missing = {"PTR 9.2.0.192.in-addr.arpa."};
    result.changed = {"c:/quillfence/from_blacklist differs"};
    result.notes = {"not as captured: c:/quillfence/from_blacklist differs"};
    result.errors = {"vc_file vc_open_ex: c:/x: Permission denied"};
    return result;
}

case_result broken() {
    case_result result;
    result.path = "c.json";
    result.line = 3;
    result.problem = "expect.verdict: is no verdict";
    return result;
}

// --- in short ---

TEST(case_result, in_short) {
    EXPECT_EQ(in_short(good()), "as expected");
    EXPECT_EQ(in_short(bad()), "not as expected: verdict, rule");
    EXPECT_EQ(in_short(broken()), "expect.verdict: is no verdict");
    case_result lacks = bad();
    lacks.wrong.clear();
    EXPECT_EQ(in_short(lacks), "an answer is missing");
    lacks.missing.push_back("A x.");
    EXPECT_EQ(in_short(lacks), "answers are missing");
}

TEST(case_result, counts) {
    const case_counts counts = count_of({good(), bad(), broken(), good()});
    EXPECT_EQ(counts.as_expected, 2u);
    EXPECT_EQ(counts.not_as_expected, 1u);
    EXPECT_EQ(counts.not_run, 1u);
    EXPECT_EQ(in_short(counts), "4 cases: 2 as expected, 1 not as expected, 1 not run");
    EXPECT_EQ(in_short(count_of({good()})), "1 case: 1 as expected");
}

TEST(case_result, texts_of_others) {
    const struct {
        const char *raw;
        const char *want;
    } cases[] = {
        {"plain \\ text", "plain \\ text"},
        {"Gr\xC3\xBC\xC3\x9F"
         "e \xE2\x82\xAC \xF0\x9F\x90\x9E",
         "Gr\xC3\xBC\xC3\x9F"
         "e \xE2\x82\xAC \xF0\x9F\x90\x9E"},
        {"a\nb\tc\x1B[31m\x7F", "a\\x0ab\\x09c\\x1b[31m\\x7f"},
        {"\xE9", "\\xe9"},
        {"\xC2\x9B"
         "31m",
         "\\xc2\\x9b31m"},
        {"\xE2\x80\xAE"
         "evil",
         "\\xe2\\x80\\xaeevil"},
        {"\xEF\xBF\xBE", "\\xef\\xbf\\xbe"},
        {"\xED\xA0\x80", "\\xed\\xa0\\x80"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(report_text(c.raw), c.want);
    }
}

// --- TAP ---

TEST(tap_report, plan_and_end) {
    EXPECT_EQ(tap_plan(3), "TAP version 13\n1..3\n");
    EXPECT_EQ(tap_end(count_of({good(), bad()})), "# 2 cases: 1 as expected, 1 not as expected\n");
}

TEST(tap_report, as_expected) {
    EXPECT_EQ(tap_case(1, good()), "ok 1 - cases/a.json\n");
    case_result result = good();
    result.description = "a friend";
    result.changed = {"c:/quillfence/from_blacklist differs"};
    EXPECT_EQ(tap_case(2, result),
              "ok 2 - cases/a.json: a friend\n"
              "# cases/a.json: not as captured: c:/quillfence/from_blacklist differs\n");
}

TEST(tap_report, not_as_expected) {
    EXPECT_EQ(tap_case(2, bad()),
              "not ok 2 - cases/b.json: a friend\n"
              "  ---\n"
              "  message: \"not as expected: verdict, rule\"\n"
              "  severity: \"fail\"\n"
              "  differences:\n"
              "    - member: \"verdict\"\n"
              "      expected: \"accept\"\n"
              "      came: \"reject\"\n"
              "    - member: \"rule\"\n"
              "      expected: \"(none)\"\n"
              "      came: \"from_blacklist\"\n"
              "  decided: \"REJECT by from_blacklist\"\n"
              "  entry: \"c:/quillfence/from_blacklist:2: *@spammer.example (wildcard)\"\n"
              "  reason: \"the sender matches an entry\"\n"
              "  missing:\n"
              "    - \"PTR 9.2.0.192.in-addr.arpa.\"\n"
              "  notes:\n"
              "    - \"not as captured: c:/quillfence/from_blacklist differs\"\n"
              "  errors:\n"
              "    - \"vc_file vc_open_ex: c:/x: Permission denied\"\n"
              "  ...\n");
}

TEST(tap_report, what_is_about_to_be_written) {
    EXPECT_EQ(tap_update(bad()), "# cases/b.json: verdict: accept becomes reject\n"
                                 "# cases/b.json: rule: (none) becomes from_blacklist\n");
}

TEST(tap_report, not_run) {
    EXPECT_EQ(tap_case(3, broken()), "not ok 3 - c.json\n"
                                     "  ---\n"
                                     "  message: \"expect.verdict: is no verdict\"\n"
                                     "  severity: \"error\"\n"
                                     "  line: 3\n"
                                     "  ...\n");
}

TEST(tap_report, a_description_makes_no_directive_and_no_line) {
    case_result result = bad();
    result.description = "x # TODO later \\# SKIP\nok 7 - all is well";
    result.entry = "say \"hi\" \\ \n  ...\nok 8";
    const std::string text = tap_case(2, result);
    EXPECT_EQ(text.substr(0, text.find('\n')),
              "not ok 2 - cases/b.json: x \\# TODO later \\\\\\# SKIP\\\\x0aok 7 - all is well");
    EXPECT_NE(text.find("  entry: \"say \\\"hi\\\" \\\\ \\\\x0a  ...\\\\x0aok 8\"\n"),
              std::string::npos);
}

// --- JUnit ---

TEST(junit_report, every_outcome) {
    EXPECT_EQ(
        junit_report({good(), bad(), broken()}, "2026-11-22T04:51:13Z"),
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<testsuites name=\"quillfence test\" tests=\"3\" failures=\"1\" errors=\"1\" "
        "time=\"0.003\">\n"
        "  <testsuite name=\"quillfence test\" tests=\"3\" failures=\"1\" errors=\"1\" "
        "time=\"0.003\""
        " timestamp=\"2026-11-22T04:51:13Z\">\n"
        "    <testcase classname=\"cases\" name=\"a.json\" time=\"0.001\"/>\n"
        "    <testcase classname=\"cases\" name=\"b.json\" time=\"0.001\">\n"
        "      <failure message=\"not as expected: verdict, rule\" type=\"not as expected\">\n"
        "verdict: expected accept, came reject\n"
        "rule: expected (none), came from_blacklist\n"
        "decided: REJECT by from_blacklist\n"
        "entry: c:/quillfence/from_blacklist:2: *@spammer.example (wildcard)\n"
        "reason: the sender matches an entry\n"
        "missing: PTR 9.2.0.192.in-addr.arpa.\n"
        "note: not as captured: c:/quillfence/from_blacklist differs\n"
        "error: vc_file vc_open_ex: c:/x: Permission denied</failure>\n"
        "      <system-out>a friend</system-out>\n"
        "    </testcase>\n"
        "    <testcase classname=\".\" name=\"c.json\" time=\"0.000\">\n"
        "      <error message=\"expect.verdict: is no verdict\" type=\"not run\"></error>\n"
        "    </testcase>\n"
        "  </testsuite>\n"
        "</testsuites>\n");
}

TEST(junit_report, what_xml_would_take_for_itself) {
    case_result result = bad();
    result.path = "a&b/<c>\".json";
    result.description = "]]> \x1B & \xEF\xBF\xBF";
    const std::string xml = junit_report({result}, "2026-11-22T04:51:13Z");
    EXPECT_NE(xml.find("classname=\"a&amp;b\" name=\"&lt;c&gt;&quot;.json\""), std::string::npos);
    EXPECT_NE(xml.find("<system-out>]]&gt; \\x1b &amp; \\xef\\xbf\\xbf</system-out>"),
              std::string::npos);
}

} // namespace
} // namespace quillfence::programs
