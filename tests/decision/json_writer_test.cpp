#include "json_writer.h"

#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace quillfence::decision {
namespace {

template <class Write>
std::string written(Write write, json_layout layout = json_layout::one_line) {
    std::string out;
    json_writer json(out, layout);
    write(json);
    json.finish();
    return out;
}

TEST(json_writer, texts) {
    const struct {
        std::string raw;
        const char *want;
    } cases[] = {
        {"", "\"\""},
        {"plain /text", "\"plain /text\""},
        {"\"\\", "\"\\\"\\\\\""},
        {"\b\t\n\f\r", "\"\\b\\t\\n\\f\\r\""},
        {"\x01\x1f\x7f", "\"\\u0001\\u001f\x7f\""},
        {"\xc3\xa4\xe2\x82\xac\xf0\x9f\x90\x9e", "\"\xc3\xa4\xe2\x82\xac\xf0\x9f\x90\x9e\""},
        {std::string("a\0b", 3), "\"a\xef\xbf\xbd"
                                 "b\""},
        {"\xff", "\"\xef\xbf\xbd\""},
        {"\xc3", "\"\xef\xbf\xbd\""},
        {"\xc3(", "\"\xef\xbf\xbd(\""},
        {"\xed\xa0\x80", "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\""},
        {"\xe2\x82\xac\xe2\x82", "\"\xe2\x82\xac\xef\xbf\xbd\xef\xbf\xbd\""},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(written([&](json_writer &json) { json.text(c.raw); }), c.want);
    }
}

TEST(json_writer, which_texts_are_plain) {
    EXPECT_TRUE(is_plain_text(""));
    EXPECT_TRUE(is_plain_text("a\n\xc3\xa4"));
    EXPECT_FALSE(is_plain_text(std::string_view("a\0", 2)));
    EXPECT_FALSE(is_plain_text("\xc3"));
}

TEST(json_writer, numbers) {
    EXPECT_EQ(written([](json_writer &json) { json.number(uint64_t{0}); }), "0");
    EXPECT_EQ(written([](json_writer &json) { json.number(std::numeric_limits<uint64_t>::max()); }),
              "18446744073709551615");
    EXPECT_EQ(written([](json_writer &json) { json.number(12.4); }), "12.4");
    EXPECT_EQ(written([](json_writer &json) { json.number(0.0); }), "0");
    const double endless = std::numeric_limits<double>::infinity();
    EXPECT_EQ(written([&](json_writer &json) { json.number(endless); }), "null");
}

void write_sample(json_writer &json) {
    json.begin_object();
    json.name("a");
    json.begin_array();
    json.end_array();
    json.name("b");
    json.begin_array();
    json.number(uint64_t{1});
    json.begin_flat_object();
    json.name("c", "_bytes");
    json.hexadecimal("\x0f\xff");
    json.name_text("d\"");
    json.begin_array();
    json.boolean(true);
    json.null();
    json.end_array();
    json.end_object();
    json.end_array();
    json.name("e");
    json.raw("{\"x\":1}");
    json.end_object();
}

TEST(json_writer, layouts) {
    EXPECT_EQ(written(write_sample),
              "{\"a\":[],\"b\":[1,{\"c_bytes\":\"0fff\",\"d\\\"\":[true,null]}],\"e\":{\"x\":1}}");
    EXPECT_EQ(written(write_sample, json_layout::indented), "{\n"
                                                            "  \"a\": [],\n"
                                                            "  \"b\": [\n"
                                                            "    1,\n"
                                                            "    {\"c_bytes\": \"0fff\", "
                                                            "\"d\\\"\": [true, null]}\n"
                                                            "  ],\n"
                                                            "  \"e\": {\"x\":1}\n"
                                                            "}");
}

TEST(json_writer, appends_to_what_is_there_and_grows) {
    std::string out = "before ";
    json_writer json(out, json_layout::one_line);
    json.begin_array();
    std::string want = "before [";
    for (int i = 0; i < 3000; ++i) {
        json.text("\n\n");
        want += i ? ",\"\\n\\n\"" : "\"\\n\\n\"";
    }
    json.end_array();
    json.finish();
    EXPECT_EQ(out, want + ']');
}

} // namespace
} // namespace quillfence::decision
