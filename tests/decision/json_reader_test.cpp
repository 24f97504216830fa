#include "json_reader.h"

#include <string>

#include <gtest/gtest.h>

namespace quillfence::decision {
namespace {

std::string refusal(std::string_view text, const json_limits &limits = {}) {
    json_problem problem;
    const json_document document(text, &problem, limits);
    EXPECT_EQ(document.empty(), !problem.text.empty());
    return document.empty() ? std::to_string(problem.line) + ": " + problem.text : "";
}

TEST(json_reader, values_of_every_kind) {
    json_problem problem;
    const json_document d(" {\"a\" : [1, -2.5e+3,\r\n\ttrue,false , null], \"\":{}, \"b\":\"c\"} ",
                          &problem);
    ASSERT_FALSE(d.empty()) << problem.text;
    ASSERT_EQ(d[0].is, json_kind::object);
    ASSERT_EQ(d[0].end, 9u);
    EXPECT_EQ(d[1].is, json_kind::array);
    EXPECT_EQ(d[1].name, "a");
    EXPECT_EQ(d[1].end, 7u);
    EXPECT_EQ(d[2].is, json_kind::number);
    EXPECT_EQ(d[3].text, "-2.5e+3");
    EXPECT_EQ(d[4].is, json_kind::boolean);
    EXPECT_EQ(d[4].text, "true");
    EXPECT_EQ(d[5].text, "false");
    EXPECT_EQ(d[6].is, json_kind::null);
    EXPECT_EQ(d[7].is, json_kind::object);
    EXPECT_EQ(d[7].name, "");
    EXPECT_EQ(d[8].text, "c");
    EXPECT_EQ(d.member(0, "b"), 8u);
    EXPECT_EQ(d.member(0, "c"), 0u);
    EXPECT_EQ(d.member(8, "c"), 0u);
    EXPECT_EQ(d.line_of(4), 2u);
    EXPECT_EQ(d.path_of(0), "");
    EXPECT_EQ(d.path_of(6), "a[4]");
    EXPECT_EQ(d.path_of(8), "b");
    EXPECT_EQ(d.compact(0), "{\"a\":[1,-2.5e+3,true,false,null],\"\":{},\"b\":\"c\"}");
    EXPECT_EQ(d.compact(1), "[1,-2.5e+3,true,false,null]");
    EXPECT_EQ(d.compact(3), "-2.5e+3");
}

TEST(json_reader, path_of_deep_values) {
    json_problem problem;
    const json_document d("{\"rules\":[{},{\"source\":{\"file\":\"x\",\"line\":1}}]}", &problem);
    ASSERT_FALSE(d.empty());
    EXPECT_EQ(d.path_of(6), "rules[1].source.line");
}

TEST(json_reader, texts) {
    const struct {
        const char *json;
        std::string want;
    } cases[] = {
        {"\"\"", ""},
        {"\"a\\\"\\\\\\/\\b\\f\\n\\r\\t\"", "a\"\\/\b\f\n\r\t"},
        {"\"\\u0041\\u00e4\\u20AC\\ud83d\\udC1e\"", "A\xc3\xa4\xe2\x82\xac\xf0\x9f\x90\x9e"},
        {"\"\xc3\xa4\xf4\x8f\xbf\xbf\"", "\xc3\xa4\xf4\x8f\xbf\xbf"},
        {"\"\x7f{[\"", "\x7f{["},
    };
    for (const auto &c : cases) {
        json_problem problem;
        const json_document d(c.json, &problem);
        ASSERT_FALSE(d.empty()) << c.json << ": " << problem.text;
        EXPECT_EQ(d[0].text, c.want) << c.json;
        EXPECT_EQ(d.compact(0), c.json);
    }
}

TEST(json_reader, compact_keeps_what_stands_in_texts) {
    json_problem problem;
    const json_document d("[ \"a \\\" }\" , { \"b ]\\\\\" : [ ] } ]", &problem);
    ASSERT_FALSE(d.empty());
    EXPECT_EQ(d.compact(0), "[\"a \\\" }\",{\"b ]\\\\\":[]}]");
}

TEST(json_reader, values_as_they_stand) {
    json_problem problem;
    const json_document d(
        "{ \"a\" : [ 1 ,\n2 ] , \"b\" : \"x\\\"\\u0041\\\\\" , \"c\" : -1e3 , \"d\" : \"\" }",
        &problem);
    ASSERT_FALSE(d.empty());
    EXPECT_EQ(d.raw(d.member(0, "a")), "[ 1 ,\n2 ]");
    EXPECT_EQ(d.raw(d.member(0, "b")), "\"x\\\"\\u0041\\\\\"");
    EXPECT_EQ(d.raw(d.member(0, "c")), "-1e3");
    EXPECT_EQ(d.raw(d.member(0, "d")), "\"\"");
}

TEST(json_reader, what_is_refused) {
    const struct {
        std::string json;
        const char *want;
    } cases[] = {
        {"", "1: the document ends too early"},
        {" \n", "2: the document ends too early"},
        {"{", "1: a member's name in quotes is missing"},
        {"[1", "1: the document ends too early"},
        {"[1\n,]", "2: a value is missing"},
        {"[1}", "1: \",\" or a closing bracket is missing"},
        {"[1 2]", "1: \",\" or a closing bracket is missing"},
        {"{\"a\":1,}", "1: a member's name in quotes is missing"},
        {"{\"a\" 1}", "1: \":\" is missing behind a member's name"},
        {"{a:1}", "1: a member's name in quotes is missing"},
        {"{\"a\":1,\n\"a\":2}", "2: a member's name stands twice in the object that ends here"},
        {"{\"a\":1,\"\\u0061\":2}", "1: a member's name stands twice in the object that ends here"},
        {"[] []", "1: text follows behind the document"},
        {"TRUE", "1: a value is missing"},
        {"tru", "1: a value is missing"},
        {"nulL", "1: a value is missing"},
        {"01", "1: text follows behind the document"},
        {"-", "1: a number is malformed"},
        {"+1", "1: a value is missing"},
        {".5", "1: a value is missing"},
        {"1.", "1: a number is malformed"},
        {"1e", "1: a number is malformed"},
        {"\"a", "1: the document ends in a text"},
        {"\"a\\", "1: a text holds an unknown escape"},
        {"\"\\x41\"", "1: a text holds an unknown escape"},
        {"\"\\u00g0\"", "1: a text holds a malformed \\u escape"},
        {"\"\\u12", "1: a text holds a malformed \\u escape"},
        {"\"\\u0000\"", "1: a text holds \\u0000"},
        {std::string("\"\0\"", 3), "1: a text holds a control character"},
        {"\"\t\"", "1: a text holds a control character"},
        {"\"\\ud800\"", "1: a text holds half of a surrogate pair"},
        {"\"\\udc00\\ud800\"", "1: a text holds half of a surrogate pair"},
        {"\"\\ud800\\u0041\"", "1: a text holds half of a surrogate pair"},
        {"\"\xff\"", "1: a text is not UTF-8"},
        {"\"\xc0\x80\"", "1: a text is not UTF-8"},
        {"\"\xed\xa0\x80\"", "1: a text is not UTF-8"},
        {"\"\xf4\x90\x80\x80\"", "1: a text is not UTF-8"},
        {"\"\xe2\x82\"", "1: a text is not UTF-8"},
        {"\xef\xbb\xbf{}", "1: a value is missing"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(refusal(c.json), c.want) << c.json;
    }
}

TEST(json_reader, limits) {
    EXPECT_EQ(refusal("[[1]]", {.depth = 2}), "");
    EXPECT_EQ(refusal("[[1]]", {.depth = 1}), "1: the document is nested too deep");
    EXPECT_EQ(refusal("[1,2]", {.nodes = 3}), "");
    EXPECT_EQ(refusal("[1,2]", {.nodes = 2}), "1: the document holds too many values");
    EXPECT_EQ(refusal("[1,2]", {.bytes = 5}), "");
    EXPECT_EQ(refusal("[1,2]", {.bytes = 4}), "1: the document is too large");
    EXPECT_EQ(refusal(std::string(1'000'000, '[')), "1: the document is nested too deep");
}

} // namespace
} // namespace quillfence::decision
