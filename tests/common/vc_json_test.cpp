#include "vc_json.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "error_text.h"
#include "failing_memory.h"
#include "vc_nulltermlist.h"

using namespace quillfence;
using quillfence::testing::failing_allocation;
using quillfence::testing::lines;
using quillfence::testing::text_of;

namespace {

struct json_deleter {
    void operator()(vc_json *node) const {
        vc_json_free(node);
    }
};
using json = std::unique_ptr<vc_json, json_deleter>;

std::string repeated(const std::string &text, size_t times) {
    std::string result;
    for (size_t i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

std::string value_of(const vc_json *node) {
    return node && node->value ? static_cast<const char *>(node->value) : "(none)";
}

class vc_json_test : public quillfence::testing::drive_test {
  protected:
    static constexpr char path[] = "c:/quillfence/document.json";

    ~vc_json_test() override {
        if (output) {
            std::fclose(output);
        }
    }

    // What a dump writes.
    std::string written(const vc_json *node, int pretty = 0, int expected = 1) {
        if (!output) {
            output = std::fopen(drive.native("c:/quillfence/written").c_str(), "w+b");
        }
        std::rewind(output);
        EXPECT_EQ((pretty ? vc_json_dump_pretty : vc_json_dump)(output, node), expected);
        std::string bytes(static_cast<size_t>(std::ftell(output)), '\0');
        std::rewind(output);
        EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), output), bytes.size());
        return bytes;
    }
    std::string pretty(const vc_json *node) {
        return written(node, 1);
    }
    json parsed(const std::string &text) {
        json root(vc_json_parse_string(text.c_str()));
        EXPECT_TRUE(root) << text;
        return root;
    }

  private:
    FILE *output = nullptr;
};

// ---- Building and writing

TEST_F(vc_json_test, the_report) {
    const json root(vc_json_create_node_object_ex(nullptr, nullptr));
    vc_json *spam = vc_json_create_node_array_ex(root.get(), "spam_hits");
    ASSERT_TRUE(vc_json_create_node_string_ex(spam, nullptr, "require_helo"));
    ASSERT_TRUE(vc_json_create_node_array_ex(root.get(), "bms_hits"));
    EXPECT_EQ(written(root.get()), "{\"spam_hits\":[\"require_helo\"],\"bms_hits\":[]}");
    ASSERT_TRUE(vc_json_create_node_string_ex(spam, nullptr, "valid_ptr"));
    EXPECT_EQ(written(root.get()),
              "{\"spam_hits\":[\"require_helo\",\"valid_ptr\"],\"bms_hits\":[]}");
}

TEST_F(vc_json_test, a_node_has_type_name_and_value) {
    const json node(vc_json_create_node_string_ex(nullptr, "name", "text"));
    EXPECT_EQ(node->type, 4u);
    EXPECT_STREQ(node->name, "name");
    EXPECT_EQ(value_of(node.get()), "text");
    EXPECT_EQ(offsetof(vc_json, type), 0u);
    EXPECT_LT(offsetof(vc_json, name), offsetof(vc_json, value));
    vc_json_free(nullptr);
}

TEST_F(vc_json_test, creators_by_type) {
    const json root(vc_json_create_node_array_ex(nullptr, nullptr));
    vc_json *r = root.get();
    const struct {
        vc_json *node;
        uint32_t type;
        const char *value;
    } cases[] = {
        {vc_json_create_node_null_ex(r, nullptr), 16, "null"},
        {vc_json_create_node_bool_ex(r, nullptr, 1), 8, "true"},
        {vc_json_create_node_bool_ex(r, nullptr, 0), 8, "false"},
        {vc_json_create_node_bool_ex(r, nullptr, -7), 8, "true"},
        {vc_json_create_node_string_ex(r, nullptr, ""), 4, ""},
        {vc_json_create_node_string_ex(r, nullptr, "a\\\"b"), 4, "a\\\"b"},
        {vc_json_create_node_int_ex(r, nullptr, 0), 2, "0"},
        {vc_json_create_node_int_ex(r, nullptr, -12), 2, "-12"},
        {vc_json_create_node_int_ex(r, nullptr, 2147483647), 2, "2147483647"},
        {vc_json_create_node_int_ex(r, nullptr, -2147483647), 2, "-2147483647"},
        {vc_json_create_node_int_ex(r, nullptr, INT32_MIN), 2, "-2"}, // as vc_ltoa has it
        {vc_json_create_node_int64_ex(r, nullptr, INT64_MIN), 2, "-9223372036854775808"},
        {vc_json_create_node_int64_ex(r, nullptr, INT64_MAX), 2, "9223372036854775807"},
        {vc_json_create_node_int64_ex(r, nullptr, 5), 2, "5"},
        {vc_json_create_node_float_ex(r, nullptr, -12.5), 2, "-12.5"},
        {vc_json_create_node_float_ex(r, nullptr, 0.1), 2, "0.1"},
        {vc_json_create_node_float_ex(r, nullptr, 3), 2, "3"},
        {vc_json_create_node_float_ex(r, nullptr, 1e21), 2, "1000000000000000000000"},
        {vc_json_create_node_object_ex(r, nullptr), 64, "(none)"},
        {vc_json_create_node_array_ex(r, nullptr), 32, "(none)"},
    };
    for (const auto &c : cases) {
        ASSERT_TRUE(c.node) << c.value;
        EXPECT_EQ(c.node->type, c.type) << c.value;
        EXPECT_EQ(value_of(c.node), c.value);
        EXPECT_EQ(c.node->name, nullptr) << c.value;
    }
    EXPECT_EQ(written(r), "[null,true,false,true,\"\",\"a\\\"b\",0,-12,2147483647,-2147483647,-2,"
                          "-9223372036854775808,9223372036854775807,5,-12.5,0.1,3,"
                          "1000000000000000000000,{},[]]");
}

TEST_F(vc_json_test, floats_that_are_no_json_numbers) {
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double value : {infinity, -infinity, std::nan("")}) {
        EXPECT_EQ(vc_json_create_node_float_ex(nullptr, nullptr, value), nullptr);
        EXPECT_EQ(log.errors(), lines{"vc_json_create_node: Error input number contained invalid "
                                      "character"});
    }
}

TEST_F(vc_json_test, the_general_creator_makes_canonical_values) {
    const struct {
        uint32_t type;
        const char *text, *value;
    } cases[] = {
        {1, "begun", "begun"},    {2, "-12.5", "-12.5"},   {2, "007", "007"},
        {2, ".5", ".5"},          {2, "5.", "5."},         {2, "-.5", "-.5"},
        {4, "x\ty", "x\ty"},      {8, "TrUe", "true"},     {8, "true", "true"},
        {8, "false", "false"},    {8, "yes", "false"},     {8, "", "false"},
        {16, "anything", "null"}, {1, nullptr, "(none)"},  {2, nullptr, "(none)"},
        {4, nullptr, "(none)"},   {8, nullptr, "(none)"},  {16, nullptr, "(none)"},
        {32, nullptr, "(none)"},  {64, nullptr, "(none)"},
    };
    for (const auto &c : cases) {
        const json node(vc_json_create_node(nullptr, "n", c.text, c.type));
        ASSERT_TRUE(node) << c.type << " " << c.value;
        EXPECT_EQ(node->type, c.type);
        EXPECT_EQ(value_of(node.get()), c.value) << c.type;
    }
}

TEST_F(vc_json_test, the_general_creator_refuses_other_types) {
    for (const uint32_t type : {0u, 3u, 96u, 128u, 0x80000000u}) {
        EXPECT_EQ(vc_json_create_node(nullptr, nullptr, "x", type), nullptr) << type;
        EXPECT_EQ(log.errors(), lines{"vc_json_create_node: Invalid argument"});
    }
    EXPECT_EQ(vc_json_create_node_string_ex(nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(log.errors(), lines{"vc_json_create_node_string_ex: Invalid argument"});
}

TEST_F(vc_json_test, number_texts_are_validated) {
    const std::string character = "Error input number contained invalid character";
    const std::string range = "Error input number causues float overflow/underflow";
    const std::string rest =
        "Error input number contains non-numeric information after the last digit";
    const struct {
        std::string text, message;
    } cases[] = {
        {"1e5", character},
        {"+1", character},
        {"0x10", character},
        {" 1", character},
        {"1 ", character},
        {"inf", character},
        {"nan", character},
        {"1,5", character},
        {"--1", rest},
        {"1-2", rest},
        {"1.2.3", rest},
        {"-", rest},
        {".", rest},
        {"-.", rest},
        {"1-", rest},
        {"..", rest},
        {"1" + repeated("0", 400), range},
        {"-1" + repeated("0", 400), range},
        {"0." + repeated("0", 400) + "1", range},
        {"", "Detected empty string when number expected"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(vc_json_create_node(nullptr, nullptr, c.text.c_str(), 2), nullptr) << c.text;
        EXPECT_EQ(log.errors(), lines{"vc_json_create_node: " + c.message}) << c.text;
    }
    const json long_number(
        vc_json_create_node(nullptr, nullptr, ("1" + repeated("0", 300)).c_str(), 2));
    EXPECT_TRUE(long_number);
    const json zero(vc_json_create_node(nullptr, nullptr, ("0." + repeated("0", 1000)).c_str(), 2));
    EXPECT_TRUE(zero);
}

TEST_F(vc_json_test, a_creator_takes_over_a_list_or_map) {
    vc_json **elements = nullptr;
    auto **list = reinterpret_cast<void **>(elements);
    vc_lstcat(&list, vc_json_create_node_int_ex(nullptr, nullptr, 1));
    vc_lstcat(&list, vc_json_create_node_int_ex(nullptr, nullptr, 2));
    const json array(
        vc_json_create_node_array_ex(nullptr, nullptr, reinterpret_cast<vc_json **>(list)));
    EXPECT_EQ(written(array.get()), "[1,2]");

    vc_hashmap *map = vc_map_create(0, 0);
    vc_map_store_ex(map, "a", vc_json_create_node_int_ex(nullptr, "a", 1), 8, 0, vc_json_free);
    // On failure the map stays with the caller.
    EXPECT_EQ(vc_json_create_node_object_ex(array.get(), "named", map), nullptr);
    EXPECT_EQ(log.errors(), (lines{"vc_json_add_node: Cannot add named node [named] to array node",
                                   "vc_json_create_node: Error appending new node to parent "
                                   "node"}));
    const json object(vc_json_create_node_object_ex(nullptr, nullptr, map));
    EXPECT_EQ(written(object.get()), "{\"a\":1}");
}

TEST_F(vc_json_test, nodes_that_cannot_be_added) {
    const json array(vc_json_create_node_array_ex(nullptr, nullptr));
    const json object(vc_json_create_node_object_ex(nullptr, nullptr));
    const json string(vc_json_create_node_string_ex(nullptr, nullptr, "s"));
    const json named(vc_json_create_node_null_ex(nullptr, "n"));
    const json nameless(vc_json_create_node_null_ex(nullptr, nullptr));
    ASSERT_TRUE(vc_json_create_node_null_ex(object.get(), "n"));
    const struct {
        const char *name;
        vc_json *parent, *child;
        const char *message;
    } cases[] = {
        {"named to array", array.get(), named.get(), "Cannot add named node [n] to array node"},
        {"nameless to object", object.get(), nameless.get(),
         "Cannot add nameless node to object node"},
        {"name taken", object.get(), named.get(), "Failed to store node in parent object map"},
        {"scalar parent", string.get(), named.get(),
         "Error attemping to add a node to a parent that is not an array or object"},
        {"null parent", nullptr, named.get(), "Invalid argument"},
        {"null child", array.get(), nullptr, "Invalid argument"},
        {"own parent", array.get(), array.get(), "Invalid argument"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(vc_json_add_node(c.parent, c.child), 0) << c.name;
        EXPECT_EQ(log.errors(), lines{std::string("vc_json_add_node: ") + c.message}) << c.name;
    }
    EXPECT_EQ(vc_json_create_node_int_ex(object.get(), nullptr, 1), nullptr);
    EXPECT_EQ(log.errors(), (lines{"vc_json_add_node: Cannot add nameless node to object node",
                                   "vc_json_create_node: Error appending new node to parent "
                                   "node"}));
    EXPECT_EQ(written(array.get()), "[]");
    EXPECT_EQ(written(object.get()), "{\"n\":null}");
}

TEST_F(vc_json_test, nodes_are_added_in_order) {
    const json root(vc_json_create_node_object_ex(nullptr, "the root's name is not written"));
    for (const char *name : {"z", "a", "m", "0", "Z"}) {
        EXPECT_EQ(vc_json_add_node(root.get(), vc_json_create_node_string_ex(nullptr, name, name)),
                  1);
    }
    EXPECT_EQ(written(root.get()), "{\"z\":\"z\",\"a\":\"a\",\"m\":\"m\",\"0\":\"0\",\"Z\":\"Z\"}");
}

TEST_F(vc_json_test, pretty_form) {
    EXPECT_EQ(pretty(parsed("{}").get()), "{}\n");
    EXPECT_EQ(pretty(parsed("[]").get()), "[]\n");
    EXPECT_EQ(pretty(parsed("[1,\"two\",[],{}]").get()), "[\n"
                                                         "    1,\n"
                                                         "    \"two\",\n"
                                                         "    [],\n"
                                                         "    {}\n"
                                                         "]\n");
    EXPECT_EQ(pretty(parsed("{\"a\":[1,{\"b\":null}],\"c\":{\"d\":true},\"e\":[]}").get()),
              "{\n"
              "    \"a\": [\n"
              "        1,\n"
              "        {\n"
              "            \"b\": null\n"
              "        }\n"
              "    ],\n"
              "    \"c\": {\n"
              "        \"d\": true\n"
              "    },\n"
              "    \"e\": []\n"
              "}\n");
    const json number(vc_json_create_node_int_ex(nullptr, "n", 1));
    EXPECT_EQ(pretty(number.get()), "1\n");
    EXPECT_EQ(written(number.get()), "1");
}

TEST_F(vc_json_test, an_emptied_array_keeps_its_list) {
    const json root = parsed("{\"a\":[1],\"b\":{\"c\":1}}");
    EXPECT_EQ(vc_json_remove_node(root.get(), "a[0]"), 1);
    EXPECT_EQ(vc_json_remove_node(root.get(), "b/c"), 1);
    EXPECT_EQ(written(root.get()), "{\"a\":[],\"b\":{}}");
    EXPECT_EQ(pretty(root.get()), "{\n"
                                  "    \"a\": [\n"
                                  "    ],\n"
                                  "    \"b\": {\n"
                                  "    }\n"
                                  "}\n");
}

TEST_F(vc_json_test, what_cannot_be_written) {
    EXPECT_EQ(written(nullptr, 0, 0), "");
    EXPECT_EQ(log.errors(), lines{"__vc_json_dump: Invalid argument"});
    const json empty(vc_json_create_node(nullptr, nullptr, nullptr, 4));
    EXPECT_EQ(written(empty.get(), 1, 0), "");
    EXPECT_EQ(log.errors(),
              lines{"__vc_json_dump: Error encountered null data in non-array/object"});
    // Nothing is written for such a node inside a document, not even its comma.
    const json array = parsed("[1,2,3]");
    vc_json *second = vc_json_node_index(array.get(), 1);
    free(second->value);
    second->value = nullptr;
    EXPECT_EQ(written(array.get(), 0, 0), "[1,3]");
    EXPECT_EQ(log.errors(),
              lines{"__vc_json_dump: Error encountered null data in non-array/object"});
    EXPECT_EQ(vc_json_dump(nullptr, array.get()), 0);
    EXPECT_EQ(vc_json_dump_pretty(nullptr, array.get()), 0);
    EXPECT_EQ(log.errors(),
              (lines{"vc_json_dump: Invalid argument", "vc_json_dump_pretty: Invalid argument"}));
}

TEST_F(vc_json_test, a_stream_that_takes_nothing) {
    drive.write(path, "[]");
    FILE *stream = std::fopen(drive.native(path).c_str(), "rb");
    const json array = parsed("[1]");
    EXPECT_EQ(vc_json_dump(stream, array.get()), 0);
    EXPECT_EQ(log.errors().size(), 1u);
    std::fclose(stream);
    EXPECT_EQ(drive.read(path), "[]");
}

TEST_F(vc_json_test, a_part_of_a_document_is_written_as_a_root) {
    const json root = parsed("{\"a\":{\"b\":[1,2]}}");
    EXPECT_EQ(written(vc_json_get_node_ex(root.get(), "a", nullptr)), "{\"b\":[1,2]}");
    FILE *stream = std::fopen(drive.native("c:/quillfence/part").c_str(), "wb");
    EXPECT_EQ(__vc_json_dump(stream, vc_json_get_node_ex(root.get(), "a", nullptr), 1, 2, 1), 1);
    std::fclose(stream);
    EXPECT_EQ(drive.read("c:/quillfence/part"), "        \"a\": {\n"
                                                "            \"b\": [\n"
                                                "                1,\n"
                                                "                2\n"
                                                "            ]\n"
                                                "        },\n");
}

// ---- Parsing

TEST_F(vc_json_test, documents_that_parse) {
    const struct {
        const char *name, *text, *compact;
    } cases[] = {
        {"empty object", "{}", "{}"},
        {"empty array", "[]", "[]"},
        {"white space", " \t\n{ \n\"a\" :\t1 , \"b\": [ 1 , 2 ] } ", "{\"a\":1,\"b\":[1,2]}"},
        {"every type",
         "{\"n\":-12.5,\"s\":\"x\",\"t\":true,\"f\":false,\"z\":null,\"a\":[],\"o\":{}}",
         "{\"n\":-12.5,\"s\":\"x\",\"t\":true,\"f\":false,\"z\":null,\"a\":[],\"o\":{}}"},
        {"nested", "[[[1],[2]],{\"a\":{\"b\":[{}]}}]", "[[[1],[2]],{\"a\":{\"b\":[{}]}}]"},
        {"numbers as written", "[0,-0,007,1.50,.5,-.5,5.]", "[0,-0,007,1.50,.5,-.5,5.]"},
        {"escapes kept", "[\"a\\\"b\",\"\\\\\",\"\\n\\u00e9\",\"\\x\"]",
         "[\"a\\\"b\",\"\\\\\",\"\\n\\u00e9\",\"\\x\"]"},
        {"bytes kept", "[\"\xC3\xBC\t\n\r\x01\"]", "[\"\xC3\xBC\t\n\r\x01\"]"},
        {"empty string", "[\"\"]", "[\"\"]"},
        {"brackets in a string", "[\"{[]},:\"]", "[\"{[]},:\"]"},
        {"capitals behind a colon", "{\"a\":TRUE,\"b\":False,\"c\":nULL}",
         "{\"a\":true,\"b\":false,\"c\":null}"},
        {"capitals first in an array", "[TRUE]", "[true]"},
        {"capitals inside a word behind a comma", "[1,tRUE,fALSE,nULL]", "[1,true,false,null]"},
        {"text behind the root", "{\"a\":1}}]garbage", "{\"a\":1}"},
        {"other closing bracket", "[1}", "[1]"},
        {"other closing bracket of an object", "{\"a\":1]", "{\"a\":1}"},
        {"other closing bracket, empty", "[}", "[]"},
        {"other closing bracket inside", "[[1},{\"a\":1],2]", "[[1],{\"a\":1},2]"},
        {"comma first in an object", "{,\"a\":1}", "{\"a\":1}"},
        {"comma first in an array", "[,1]", "[1]"},
        {"colon first in an array", "[:1]", "[1]"},
        {"same name on another level", "{\"a\":{\"a\":1},\"b\":[{\"a\":2}]}",
         "{\"a\":{\"a\":1},\"b\":[{\"a\":2}]}"},
    };
    for (const auto &c : cases) {
        const json root(vc_json_parse_string(c.text));
        ASSERT_TRUE(root) << c.name;
        EXPECT_EQ(written(root.get()), c.compact) << c.name;
    }
}

TEST_F(vc_json_test, empty_brackets_have_no_value) {
    const json object = parsed("{}");
    EXPECT_EQ(object->type, vc_json_type_object);
    EXPECT_EQ(object->value, nullptr);
    const json array = parsed("[ ]");
    EXPECT_EQ(array->type, vc_json_type_array);
    EXPECT_EQ(array->value, nullptr);
}

TEST_F(vc_json_test, the_start_of_a_document) {
    const struct {
        const char *text, *shown;
    } cases[] = {{"x", "x"},      {"  1", "1"}, {"\"a\"", "\""}, {"}", "}"},
                 {"\r\n{}", "?"}, {"", "?"},    {" \n", "?"},    {"\xEF\xBB\xBF{}", "?"}};
    for (const auto &c : cases) {
        EXPECT_EQ(vc_json_parse_string(c.text), nullptr) << c.text;
        EXPECT_EQ(log.errors(),
                  lines{"vc_json_parse_string: Encountered unexpected '" + std::string(c.shown) +
                        "' at start of json, expected '{' or '['"});
    }
    EXPECT_EQ(vc_json_parse_string(nullptr), nullptr);
    EXPECT_EQ(log.errors(), lines{"vc_json_parse_string: Invalid argument"});
}

TEST_F(vc_json_test, characters_out_of_place) {
    const struct {
        const char *text;
        char character;
        int position;
    } cases[] = {
        {"[1,TRUE]", 'T', 3},
        {"[1,False]", 'F', 3},
        {"[1,NULL]", 'N', 3},
        {"[1 2]", '2', 3},
        {"[1,]", ']', 3},
        {"[1,,2]", ',', 3},
        {"[,]", ']', 2},

        {"[\"a\":1]", ':', 4},
        {"[\"a\" \"b\"]", '"', 5},
        {"[true1]", '1', 5},
        {"[[]1]", '1', 3},
        {"[{}{}]", '{', 3},
        {"{\"a\"}", '}', 4},
        {"{\"a\",1}", ',', 4},
        {"{\"a\" 1}", '1', 5},
        {"{\"a\":}", '}', 5},
        {"{\"a\":,}", ',', 5},
        {"{\"a\"::1}", ':', 5},
        {"{\"a\":1,}", '}', 7},
        {"{\"a\":1,b:2}", 'b', 7},
        {"{\"a\":1 \"b\":2}", '"', 7},
        {"{\"a\":x}", 'x', 5},
        {"{,}", '}', 2},
        {"  { \"a\" : x}", 'x', 10},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(vc_json_parse_string(c.text), nullptr) << c.text;
        EXPECT_EQ(log.errors(), (lines{"vc_json_parse_partial: Unexpected character '" +
                                           std::string(1, c.character) + "' at position " +
                                           std::to_string(c.position) + " in: [" + c.text + "]",
                                       "vc_json_parse_string: Error parsing object"}))
            << c.text;
    }
    // The position and the text are the document's on an inner level, too.
    EXPECT_EQ(vc_json_parse_string("{\"a\":[1,{\"b\"]}"), nullptr);
    EXPECT_EQ(log.errors(), (lines{"vc_json_parse_partial: Unexpected character ']' at position "
                                   "12 in: [{\"a\":[1,{\"b\"]}]",
                                   "vc_json_parse_partial: Error parsing object",
                                   "vc_json_parse_partial: Error parsing object",
                                   "vc_json_parse_string: Error parsing object"}));
    // A carriage return is no white space.
    EXPECT_EQ(vc_json_parse_string("[\"a\"\r\n]"), nullptr);
    EXPECT_EQ(log.errors()[0],
              "vc_json_parse_partial: Unexpected character '?' at position 4 in: [[\"a\"??]]");
}

TEST_F(vc_json_test, documents_that_do_not_parse) {
    const std::string in = "vc_json_parse_partial: ";
    const std::string invalid = in + "Encountered invalid json";
    const std::string object = in + "Error parsing object";
    const std::string quotes = in + "Error parsing quotes";
    const std::string keyword = in + "Error parsing true/false/null";
    const std::string number = in + "Error parsing number";
    const std::string character =
        "vc_json_create_node: Error input number contained invalid character";
    const std::string rest = "vc_json_create_node: Error input number contains non-numeric "
                             "information after the last digit";
    const struct {
        const char *text;
        lines messages; // before the root's own
    } cases[] = {
        // the end comes too early
        {"{", {invalid}},
        {"[", {invalid}},
        {"[1", {invalid}},
        {"{\"a\":1", {invalid}},
        {"{\"a\":1,", {invalid}},
        {"{\"a\"", {invalid}},
        {"{\"a\":", {invalid}},
        {"{\"a\":[1,2]", {invalid}},
        {"[[1", {invalid, object}},
        {"{\"a\":{\"b\":{", {invalid, object, object}},
        // no token
        {"[x]", {invalid}},
        {"{x}", {invalid}},
        {"[\r]", {invalid}},
        {"[[+1]]", {invalid, object}},
        // values without a name
        {"{1}", {in + "No current node...", number}},
        {"{true}", {in + "No current node...", keyword}},
        {"{[]}", {in + "No current node...", object}},
        {"{{}}", {in + "No current node...", object}},
        {"{:\"a\"}", {in + "No current node...", quotes}},
        {"{:1}", {in + "No current node...", number}},
        // strings
        {"[\"abc]", {in + "Error while reading string from json", quotes}},
        {"[\"abc\\\"]", {in + "Error while reading string from json", quotes}},
        {"[\"abc\\",
         {in + "Escape character found at end of string",
          in + "Error while reading string from json", quotes}},
        {"{\"abc", {in + "Error while reading string from json", quotes}},
        {"{\"a\":[\"b]}", {in + "Error while reading string from json", quotes, object}},
        // keywords
        {"[tru]", {in + "Invalid keyword: tru]", in + "Unknown field encountered: [tru]", keyword}},
        {"{\"a\":Nothing}",
         {in + "Invalid keyword: Nothi", in + "Unknown field encountered: [Nothing]", keyword}},
        {"[t", {in + "Invalid keyword: t", in + "Unknown field encountered: [t]", keyword}},
        {"[trueish]",
         {in + "Invalid keyword: truei", in + "Unknown field encountered: [trueish]", keyword}},
        // numbers
        {"[1e5]", {character, number}},
        {"[1:2]", {character, number}},
        {"[1\r\n]", {character, number}},
        {"[1\"a\"]", {character, number}},
        {"{\"a\":1[]}", {character, number}},
        {"[--1]", {rest, number}},
        {"[-]", {rest, number}},
        {"[[1-2]]", {rest, number, object}},
        // a name twice
        {"{\"a\":1,\"a\":2}",
         {"vc_json_add_node: Failed to store node in parent object map",
          in + "Error while appending node [a] to parent [(null)]", quotes}},
        {"{\"p\":{\"a\":1,\"a\":2}}",
         {"vc_json_add_node: Failed to store node in parent object map",
          in + "Error while appending node [a] to parent [p]", quotes, object}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(vc_json_parse_string(c.text), nullptr) << c.text;
        lines messages = c.messages;
        messages.push_back("vc_json_parse_string: Error parsing object");
        EXPECT_EQ(log.errors(), messages) << c.text;
    }
}

TEST_F(vc_json_test, the_empty_name_costs_a_line) {
    const json root(vc_json_parse_string("{\"\":1}"));
    ASSERT_TRUE(root);
    EXPECT_EQ(log.errors(), lines{"__super_fast_hash: Invalid argument"});
    EXPECT_EQ(written(root.get()), "{\"\":1}");
}

TEST_F(vc_json_test, documents_nest_a_thousand_deep) {
    const std::string deep = repeated("[", 1000) + repeated("]", 1000);
    const json root(vc_json_parse_string(deep.c_str()));
    ASSERT_TRUE(root);
    EXPECT_EQ(written(root.get()), deep);
    for (const size_t depth : {1001u, 300000u}) {
        EXPECT_EQ(vc_json_parse_string(repeated("[", depth).c_str()), nullptr);
        const lines errors = log.errors();
        ASSERT_EQ(errors.size(), 1002u);
        EXPECT_EQ(errors[0], "vc_json_parse_partial: Encountered invalid json");
        EXPECT_EQ(errors[1], "vc_json_parse_partial: Error parsing object");
        EXPECT_EQ(errors[1001], "vc_json_parse_string: Error parsing object");
    }
    EXPECT_EQ(vc_json_parse_string((repeated("{\"a\":", 1001) + repeated("}", 1001)).c_str()),
              nullptr);
    EXPECT_EQ(log.errors()[0], "vc_json_parse_partial: Encountered invalid json");
}

TEST_F(vc_json_test, long_arrays_and_large_objects) {
    std::string array = "[0";
    std::string object = "{\"k0\":0";
    for (int i = 1; i < 100000; ++i) {
        const std::string number = std::to_string(i);
        array += "," + number;
        object += ",\"k" + number + "\":" + number;
    }
    array += "]";
    object += "}";
    const json a = parsed(array);
    EXPECT_EQ(vc_json_num_children(a.get()), 100000u);
    EXPECT_EQ(written(a.get()), array);
    const json o = parsed(object);
    EXPECT_EQ(vc_json_num_children(o.get()), 100000u);
    EXPECT_EQ(value_of(vc_json_get_node_ex(o.get(), "k99999", nullptr)), "99999");
    EXPECT_EQ(written(o.get()), object);
}

TEST_F(vc_json_test, a_parsed_array_takes_more_elements) {
    for (size_t count = 0; count < 20; ++count) {
        std::string text = "[";
        for (size_t i = 0; i < count; ++i) {
            text += i ? ",1" : "1";
        }
        const json root = parsed(text + "]");
        ASSERT_TRUE(vc_json_create_node_int_ex(root.get(), nullptr, 2));
        EXPECT_EQ(written(root.get()), text + (count ? ",2]" : "2]"));
    }
}

TEST_F(vc_json_test, a_part_is_parsed_into_a_parent) {
    const json array(vc_json_create_node_array_ex(nullptr, nullptr));
    const char text[] = "1,[2]] rest";
    const char *end = nullptr;
    EXPECT_EQ(vc_json_parse_partial(text, array.get(), &end), array.get());
    EXPECT_STREQ(end, " rest");
    EXPECT_EQ(written(array.get()), "[1,[2]]");

    const json object(vc_json_create_node_object_ex(nullptr, nullptr));
    EXPECT_EQ(vc_json_parse_partial("\"a\":1}", object.get(), nullptr), object.get());
    EXPECT_EQ(written(object.get()), "{\"a\":1}");
}

TEST_F(vc_json_test, a_part_that_fails_leaves_the_parent_empty) {
    const json array(vc_json_create_node_array_ex(nullptr, nullptr));
    const json object(vc_json_create_node_object_ex(nullptr, nullptr));
    const char *end = nullptr;
    EXPECT_EQ(vc_json_parse_partial("1,[2]", array.get(), &end), nullptr);
    EXPECT_EQ(vc_json_parse_partial("\"a\":{\"b\":1}", object.get(), &end), nullptr);
    EXPECT_EQ(end, nullptr);
    EXPECT_EQ(array->value, nullptr);
    EXPECT_EQ(object->value, nullptr);
    EXPECT_EQ(log.errors(), (lines(2, "vc_json_parse_partial: Encountered invalid json")));
}

TEST_F(vc_json_test, a_part_needs_an_empty_parent) {
    const json string(vc_json_create_node_string_ex(nullptr, nullptr, "s"));
    const json full = parsed("[1]");
    EXPECT_EQ(vc_json_parse_partial("]", nullptr, nullptr), nullptr);
    EXPECT_EQ(vc_json_parse_partial("]", string.get(), nullptr), nullptr);
    EXPECT_EQ(vc_json_parse_partial("]", full.get(), nullptr), nullptr);
    EXPECT_EQ(vc_json_parse_partial(nullptr, full.get(), nullptr), nullptr);
    EXPECT_EQ(log.errors(), (lines(4, "vc_json_parse_partial: Invalid argument")));
    EXPECT_EQ(written(full.get()), "[1]");
}

// ---- Files

TEST_F(vc_json_test, a_file_is_parsed) {
    drive.write(path, "{\"a\":[1,2]}\n");
    const json root(vc_json_parse_file(path));
    ASSERT_TRUE(root);
    EXPECT_EQ(written(root.get()), "{\"a\":[1,2]}");
}

TEST_F(vc_json_test, files_that_cannot_be_parsed) {
    EXPECT_EQ(vc_json_parse_file(path), nullptr);
    EXPECT_EQ(log.errors(), lines{"vc_json_parse_file: file path c:/quillfence/document.json does "
                                  "not exist"});
    EXPECT_EQ(vc_json_parse_full_file(path), nullptr);
    EXPECT_EQ(log.errors(), lines{"vc_json_parse_full_file: file path c:/quillfence/document.json "
                                  "does not exist"});
    EXPECT_FALSE(drive.exists(path));
    for (const char *none : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_EQ(vc_json_parse_file(none), nullptr);
        EXPECT_EQ(vc_json_parse_full_file(none), nullptr);
        EXPECT_EQ(log.errors(), (lines{"vc_json_parse_file: Invalid argument",
                                       "vc_json_parse_full_file: Invalid argument"}));
    }
    drive.write(path, "");
    EXPECT_EQ(vc_json_parse_file(path), nullptr);
    EXPECT_EQ(log.errors(), lines{"vc_json_parse_string: Encountered unexpected '?' at start of "
                                  "json, expected '{' or '['"});
}

// The compact forms of the roots of a file.
class vc_json_full_file : public vc_json_test {
  protected:
    std::vector<std::string> roots_of(const std::string &contents) {
        drive.write(path, contents);
        vc_json **roots = vc_json_parse_full_file(path);
        std::vector<std::string> texts;
        for (vc_json **root = roots; root && *root; ++root) {
            texts.push_back(written(*root));
        }
        auto **list = reinterpret_cast<void **>(roots);
        vc_lstfree(&list, vc_json_free);
        return texts;
    }
};

TEST_F(vc_json_full_file, every_block_is_a_root) {
    using texts = std::vector<std::string>;
    EXPECT_EQ(roots_of("{\"a\":1} and then {\"b\":{\"c\":2}}"),
              (texts{"{\"a\":1}", "{\"b\":{\"c\":2}}"}));
    EXPECT_EQ(roots_of("} text [1] {}{}\r\n{ }"), (texts{"{}", "{}", "{}"}));
    EXPECT_EQ(roots_of("no block"), texts{});
    EXPECT_EQ(roots_of(""), texts{});
}

TEST_F(vc_json_full_file, an_open_block_ends_the_list) {
    EXPECT_EQ(roots_of("{\"a\":1} {\"b\":{} {"), std::vector<std::string>{"{\"a\":1}"});
    EXPECT_EQ(log.errors(), lines{"vc_json_parse_full_file: Failed to find ending '}' brace"});
    EXPECT_EQ(roots_of("{"), std::vector<std::string>{});
    EXPECT_EQ(log.errors(), lines{"vc_json_parse_full_file: Failed to find ending '}' brace"});
}

TEST_F(vc_json_full_file, a_bad_block_fails_the_file) {
    EXPECT_EQ(roots_of("{\"a\":1} {b} {\"c\":1}"), std::vector<std::string>{});
    EXPECT_EQ(log.errors(), (lines{"vc_json_parse_partial: Encountered invalid json",
                                   "vc_json_parse_string: Error parsing object",
                                   "vc_json_parse_full_file: Error parsing json string"}));
    // Braces count within strings, too.
    EXPECT_EQ(roots_of("{\"a\":\"}\"}"), std::vector<std::string>{});
    EXPECT_EQ(log.errors().back(), "vc_json_parse_full_file: Error parsing json string");
    EXPECT_EQ(roots_of("{\"a\":\"{}\"}"), std::vector<std::string>{"{\"a\":\"{}\"}"});
}

// ---- Finding

constexpr char shop[] = "{\"name\":\"shop\",\"list\":[10,[20,21],{\"deep\":\"here\"}],"
                        "\"box\":{\"inner\":{\"n\":1},\"list\":[\"a\",\"b\"]},\"none\":null}";

TEST_F(vc_json_test, paths) {
    const json root = parsed(shop);
    const json array = parsed("[[1,[2]],{\"a\":[3]}]");
    const struct {
        vc_json *node;
        const char *path, *value;
    } cases[] = {
        {root.get(), "name", "shop"},
        {root.get(), "list[0]", "10"},
        {root.get(), "list[1][1]", "21"},
        {root.get(), "list[2]/deep", "here"},
        {root.get(), "box/inner/n", "1"},
        {root.get(), "box/list[1]", "b"},
        {root.get(), "list[00]", "10"},
        {root.get(), "none", "null"},
        {array.get(), "[0][0]", "1"},
        {array.get(), "[0][1][0]", "2"},
        {array.get(), "[1]/a[0]", "3"},
        // nothing there
        {root.get(), "shop", "(none)"},
        {root.get(), "NAME", "(none)"},
        {root.get(), "list[3]", "(none)"},
        {root.get(), "list[4294967295]", "(none)"},
        {root.get(), "list[4294967296]", "(none)"},
        {root.get(), "list[18446744073709551616]", "(none)"},
        {root.get(), "list[99999999999999999999]", "(none)"},
        {root.get(), "name/x", "(none)"},
        {root.get(), "name[0]", "(none)"},
        {root.get(), "box[0]", "(none)"},
        {root.get(), "[0]", "(none)"},
        {root.get(), "list/0", "(none)"},
        {array.get(), "a", "(none)"},
        {array.get(), "[2]", "(none)"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(value_of(vc_json_get_node_ex(c.node, c.path, nullptr)), c.value) << c.path;
    }
    const json empty = parsed("{\"a\":[],\"o\":{}}");
    EXPECT_EQ(vc_json_get_node_ex(empty.get(), "a[0]", nullptr), nullptr);
    EXPECT_EQ(vc_json_get_node_ex(empty.get(), "o/x", nullptr), nullptr);
    const json scalar(vc_json_create_node_int_ex(nullptr, nullptr, 1));
    EXPECT_EQ(vc_json_get_node_ex(scalar.get(), "x", nullptr), nullptr);
    EXPECT_EQ(vc_json_get_node_ex(scalar.get(), "[0]", nullptr), nullptr);
}

TEST_F(vc_json_test, paths_with_a_bad_character) {
    const json root = parsed(shop);
    const struct {
        const char *path, *shown;
    } cases[] = {{"list[1]x", "x"}, {"list[1]]", "]"}, {"list[x]", "x"},
                 {"list[]", "]"},   {"list[-1]", "-"}, {"list[1", "?"},
                 {"list[", "?"},    {"list[ 1]", " "}, {"list[0x1]", "x"}};
    for (const auto &c : cases) {
        vc_json *parent = root.get();
        EXPECT_EQ(vc_json_get_node_ex(root.get(), c.path, &parent), nullptr) << c.path;
        EXPECT_EQ(parent, nullptr);
        EXPECT_EQ(log.errors(), lines{std::string("vc_json_get_node_ex: Bad character "
                                                  "encountered: [") +
                                      c.shown + "]"})
            << c.path;
    }
    EXPECT_EQ(vc_json_get_node_ex(root.get(), nullptr, nullptr), nullptr);
    EXPECT_EQ(vc_json_get_node_ex(root.get(), "", nullptr), nullptr);
    EXPECT_EQ(vc_json_get_node_ex(nullptr, "a", nullptr), nullptr);
    EXPECT_EQ(log.errors(), (lines(3, "vc_json_get_node_ex: Invalid argument")));
}

TEST_F(vc_json_test, the_parent_of_what_a_path_names) {
    const json root = parsed(shop);
    vc_json *parent = nullptr;
    ASSERT_TRUE(vc_json_get_node_ex(root.get(), "name", &parent));
    EXPECT_EQ(parent, root.get());
    ASSERT_TRUE(vc_json_get_node_ex(root.get(), "list[1][0]", &parent));
    EXPECT_EQ(parent, vc_json_get_node_ex(root.get(), "list[1]", nullptr));
    ASSERT_TRUE(vc_json_get_node_ex(root.get(), "box/inner", &parent));
    EXPECT_EQ(parent, vc_json_get_node_ex(root.get(), "box", nullptr));
    EXPECT_EQ(vc_json_get_node_ex(root.get(), "box/outer", &parent), nullptr);
    EXPECT_EQ(parent, nullptr);
}

TEST_F(vc_json_test, children_by_position) {
    const json root = parsed(shop);
    EXPECT_EQ(value_of(vc_json_node_index(root.get(), 0)), "shop");
    EXPECT_STREQ(vc_json_node_index(root.get(), 3)->name, "none");
    vc_json *list = vc_json_node_index(root.get(), 1);
    EXPECT_EQ(value_of(vc_json_node_index(list, 0)), "10");
    EXPECT_EQ(vc_json_node_index(list, 3), nullptr);
    EXPECT_EQ(log.errors(), lines{});
    EXPECT_EQ(vc_json_node_index(root.get(), 4), nullptr);
    EXPECT_EQ(log.errors().back(),
              "vc_json_node_index: Failed to get node at index [4] from object node");
    const json empty = parsed("{}");
    EXPECT_EQ(vc_json_node_index(empty.get(), 0), nullptr);
    EXPECT_EQ(log.errors().back(),
              "vc_json_node_index: Failed to get node at index [0] from object node");
    EXPECT_EQ(vc_json_node_index(vc_json_node_index(root.get(), 0), 0), nullptr);
    EXPECT_EQ(vc_json_node_index(nullptr, 0), nullptr);
    EXPECT_EQ(log.errors(), (lines(2, "vc_json_node_index: Invalid argument")));
}

TEST_F(vc_json_test, numbers_of_children_and_types) {
    const json root = parsed(shop);
    EXPECT_EQ(vc_json_num_children(root.get()), 4u);
    EXPECT_EQ(vc_json_num_children(vc_json_node_index(root.get(), 1)), 3u);
    EXPECT_EQ(vc_json_num_children(vc_json_node_index(root.get(), 0)), 0u);
    EXPECT_EQ(vc_json_num_children(parsed("{}").get()), 0u);
    EXPECT_EQ(vc_json_num_children(parsed("[]").get()), 0u);
    EXPECT_EQ(vc_json_get_node_type(root.get()), 64u);
    EXPECT_EQ(vc_json_get_node_type(vc_json_node_index(root.get(), 0)), 4u);
    EXPECT_EQ(vc_json_get_node_type(vc_json_node_index(root.get(), 1)), 32u);
    EXPECT_EQ(vc_json_get_node_type(vc_json_node_index(root.get(), 3)), 16u);
    EXPECT_EQ(log.errors(), lines{});
    EXPECT_EQ(vc_json_num_children(nullptr), 0u);
    EXPECT_EQ(vc_json_get_node_type(nullptr), 0u);
    EXPECT_EQ(log.errors(), (lines{"vc_json_num_children: Invalid argument",
                                   "vc_json_get_node_type: Invalid argument"}));
}

TEST_F(vc_json_test, find_looks_below) {
    const json root = parsed("{\"x\":{\"y\":{\"k\":\"deep\",\"m\":1}},\"k\":\"top\","
                             "\"list\":[1,{\"j\":[5,6]},{\"m\":2}]}");
    EXPECT_EQ(value_of(vc_json_find_node(root.get(), "k")), "top"); // directly first
    EXPECT_EQ(value_of(vc_json_find_node(root.get(), "y/k")), "deep");
    EXPECT_EQ(value_of(vc_json_find_node(root.get(), "m")), "1"); // the first one met
    EXPECT_EQ(value_of(vc_json_find_node(root.get(), "j[1]")), "6");
    EXPECT_EQ(value_of(vc_json_find_node(root.get(), "[1]/j[0]")), "5");
    EXPECT_EQ(vc_json_find_node(root.get(), "absent"), nullptr);
    EXPECT_EQ(vc_json_find_node(parsed("{}").get(), "a"), nullptr);
    EXPECT_EQ(log.errors(), lines{});
    EXPECT_EQ(vc_json_find_node(nullptr, "a"), nullptr);
    EXPECT_EQ(vc_json_find_node(root.get(), nullptr), nullptr);
    EXPECT_EQ(vc_json_find_node(root.get(), ""), nullptr);
    EXPECT_EQ(log.errors(), (lines(3, "vc_json_find_node: Invalid argument")));
}

TEST_F(vc_json_test, walks) {
    for (const char *text : {"[1,2,3]", "{\"a\":1,\"b\":2,\"c\":3}"}) {
        const json root = parsed(text);
        vc_json_iterator *walk = vc_json_iterator_start(root.get());
        ASSERT_TRUE(walk);
        EXPECT_EQ(value_of(vc_json_iterator_next(walk)), "1");
        EXPECT_EQ(vc_json_iterator_prev(walk), nullptr);
        EXPECT_EQ(value_of(vc_json_iterator_next(walk)), "2");
        EXPECT_EQ(value_of(vc_json_iterator_next(walk)), "3");
        EXPECT_EQ(vc_json_iterator_next(walk), nullptr);
        EXPECT_EQ(vc_json_iterator_next(walk), nullptr);
        EXPECT_EQ(value_of(vc_json_iterator_prev(walk)), "2");
        vc_json_iterator_end(walk);
        // Fresh, prev begins at the end.
        walk = vc_json_iterator_start(root.get());
        EXPECT_EQ(value_of(vc_json_iterator_prev(walk)), "3");
        EXPECT_EQ(vc_json_iterator_next(walk), nullptr);
        EXPECT_EQ(value_of(vc_json_iterator_prev(walk)), "2");
        vc_json_iterator_end(walk);
    }
}

TEST_F(vc_json_test, walks_over_nothing) {
    for (const char *text : {"[]", "{}"}) {
        const json root = parsed(text);
        vc_json_iterator *walk = vc_json_iterator_start(root.get());
        ASSERT_TRUE(walk) << text;
        EXPECT_EQ(vc_json_iterator_next(walk), nullptr);
        EXPECT_EQ(vc_json_iterator_prev(walk), nullptr);
        vc_json_iterator_end(walk);
    }
    const json scalar(vc_json_create_node_null_ex(nullptr, nullptr));
    EXPECT_EQ(vc_json_iterator_start(scalar.get()), nullptr);
    EXPECT_EQ(vc_json_iterator_start(nullptr), nullptr);
    EXPECT_EQ(vc_json_iterator_next(nullptr), nullptr);
    EXPECT_EQ(vc_json_iterator_prev(nullptr), nullptr);
    vc_json_iterator_end(nullptr);
    EXPECT_EQ(log.errors(), (lines{"vc_json_iterator_start: Invalid argument",
                                   "vc_json_iterator_start: Invalid argument",
                                   "vc_json_iterator_next: Invalid argument",
                                   "vc_json_iterator_prev: Invalid argument"}));
}

// ---- Changing

TEST_F(vc_json_test, nodes_are_removed) {
    const json root = parsed("{\"a\":1,\"b\":[1,2,3],\"c\":{\"d\":[{}],\"e\":2}}");
    EXPECT_EQ(vc_json_remove_node(root.get(), "b[1]"), 1);
    EXPECT_EQ(written(root.get()), "{\"a\":1,\"b\":[1,3],\"c\":{\"d\":[{}],\"e\":2}}");
    EXPECT_EQ(vc_json_remove_node(root.get(), "c/d"), 1);
    EXPECT_EQ(written(root.get()), "{\"a\":1,\"b\":[1,3],\"c\":{\"e\":2}}");
    EXPECT_EQ(vc_json_remove_node(root.get(), "a"), 1);
    EXPECT_EQ(written(root.get()), "{\"b\":[1,3],\"c\":{\"e\":2}}");
    EXPECT_EQ(vc_json_remove_node(root.get(), "absent"), 1);
    EXPECT_EQ(vc_json_remove_node(root.get(), "b[7]"), 1);
    EXPECT_EQ(written(root.get()), "{\"b\":[1,3],\"c\":{\"e\":2}}");
    EXPECT_EQ(vc_json_remove_node(root.get(), "b[1]"), 1);
    EXPECT_EQ(vc_json_remove_node(root.get(), "b[0]"), 1);
    EXPECT_EQ(written(root.get()), "{\"b\":[],\"c\":{\"e\":2}}");
}

TEST_F(vc_json_test, nodes_that_cannot_be_removed) {
    const json root = parsed("{\"a\":1}");
    EXPECT_EQ(vc_json_remove_node(root.get(), nullptr), 0);
    EXPECT_EQ(vc_json_remove_node(root.get(), ""), 0);
    EXPECT_EQ(vc_json_remove_node(nullptr, "a"), 0);
    EXPECT_EQ(log.errors(), (lines(3, "vc_json_remove_node: Invalid argument")));
    vc_json *member = vc_json_node_index(root.get(), 0);
    free(member->name);
    member->name = nullptr;
    EXPECT_EQ(vc_json_remove_node(root.get(), "a"), 0);
    EXPECT_EQ(log.errors(), lines{"vc_json_remove_node: Retrieved node does not have a name"});
    EXPECT_EQ(vc_json_num_children(root.get()), 1u);
}

TEST_F(vc_json_test, nodes_are_renamed_in_place) {
    const json root = parsed("{\"a\":1,\"b\":{\"c\":2,\"d\":3}}");
    EXPECT_EQ(vc_json_rename_node(root.get(), "a", "z"), 1);
    EXPECT_EQ(vc_json_rename_node(root.get(), "b/c", "y"), 1);
    EXPECT_EQ(written(root.get()), "{\"z\":1,\"b\":{\"y\":2,\"d\":3}}");
    EXPECT_EQ(vc_json_get_node_ex(root.get(), "a", nullptr), nullptr);
    EXPECT_EQ(value_of(vc_json_get_node_ex(root.get(), "z", nullptr)), "1");
    EXPECT_EQ(vc_json_remove_node(root.get(), "z"), 1);
    EXPECT_EQ(written(root.get()), "{\"b\":{\"y\":2,\"d\":3}}");
}

TEST_F(vc_json_test, a_renamed_element_answers_to_its_name) {
    const json root = parsed("{\"list\":[1,2]}");
    EXPECT_EQ(vc_json_rename_node(root.get(), "list[1]", "two"), 1);
    EXPECT_EQ(value_of(vc_json_get_node_ex(root.get(), "list/two", nullptr)), "2");
    EXPECT_EQ(written(root.get()), "{\"list\":[1,\"two\":2]}");
}

TEST_F(vc_json_test, nodes_that_cannot_be_renamed) {
    const json root = parsed("{\"a\":1,\"b\":2}");
    EXPECT_EQ(vc_json_rename_node(root.get(), "absent", "x"), 0);
    EXPECT_EQ(log.errors(), lines{"vc_json_rename_node: Unable to retrieve node [absent]"});
    EXPECT_EQ(vc_json_rename_node(root.get(), "a", "b"), 0);
    EXPECT_EQ(vc_json_rename_node(root.get(), "a", "a"), 0);
    EXPECT_EQ(log.errors(),
              (lines{"vc_json_rename_node: Failed to rename node [a] to [b] in parent map",
                     "vc_json_rename_node: Failed to rename node [a] to [a] in parent map"}));
    EXPECT_EQ(vc_json_rename_node(nullptr, "a", "b"), 0);
    EXPECT_EQ(vc_json_rename_node(root.get(), nullptr, "b"), 0);
    EXPECT_EQ(vc_json_rename_node(root.get(), "a", nullptr), 0);
    EXPECT_EQ(log.errors(), (lines(3, "vc_json_rename_node: Invalid argument")));
    EXPECT_EQ(written(root.get()), "{\"a\":1,\"b\":2}");
}

// ---- Values

constexpr char values[] =
    "{\"n\":-12.5,\"i\":42,\"big\":99999999999,\"low\":-99999999999,"
    "\"huge\":99999999999999999999,\"p\":.5,\"s\":\"t\\\"x\",\"t\":true,\"f\":false,"
    "\"z\":null,\"a\":[1],\"o\":{\"k\":1},\"ea\":[],\"eo\":{}}";

TEST_F(vc_json_test, integers_are_read) {
    const json root = parsed(values);
    const struct {
        const char *path;
        int32_t value;
        int64_t value64;
    } cases[] = {
        {"i", 42, 42},
        {"n", -12, -12},
        {"p", 0, 0},
        {"big", INT32_MAX, 99999999999},
        {"low", INT32_MIN, -99999999999},
        {"huge", INT32_MAX, INT64_MAX},
        {"a[0]", 1, 1},
    };
    for (const auto &c : cases) {
        int32_t value = 7;
        int64_t value64 = 7;
        EXPECT_EQ(vc_json_get_value_int(root.get(), c.path, &value), 1) << c.path;
        EXPECT_EQ(vc_json_get_value_int64(root.get(), c.path, &value64), 1) << c.path;
        EXPECT_EQ(value, c.value) << c.path;
        EXPECT_EQ(value64, c.value64) << c.path;
    }
    int32_t value = 7;
    EXPECT_EQ(vc_json_get_value_int(vc_json_node_index(root.get(), 1), nullptr, &value), 1);
    EXPECT_EQ(value, 42);
}

TEST_F(vc_json_test, other_values_are_read) {
    const json root = parsed(values);
    double number = 7;
    EXPECT_EQ(vc_json_get_value_float(root.get(), "n", &number), 1);
    EXPECT_EQ(number, -12.5);
    EXPECT_EQ(vc_json_get_value_float(root.get(), "p", &number), 1);
    EXPECT_EQ(number, 0.5);
    int truth = 7;
    EXPECT_EQ(vc_json_get_value_bool(root.get(), "t", &truth), 1);
    EXPECT_EQ(truth, 1);
    EXPECT_EQ(vc_json_get_value_bool(root.get(), "f", &truth), 1);
    EXPECT_EQ(truth, 0);
    const struct {
        const char *path, *text;
    } texts[] = {{"s", "t\\\"x"}, {"n", "-12.5"}, {"t", "true"}, {"z", "null"}};
    for (const auto &c : texts) {
        char *text = nullptr;
        EXPECT_EQ(vc_json_get_value_string(root.get(), c.path, &text), 1) << c.path;
        EXPECT_STREQ(text, c.text);
        free(text);
    }
    vc_json *node = nullptr;
    EXPECT_EQ(vc_json_get_value_list(root.get(), "a", &node), 1);
    EXPECT_EQ(node, vc_json_get_node_ex(root.get(), "a", nullptr));
    EXPECT_EQ(vc_json_get_value_object(root.get(), "o", &node), 1);
    EXPECT_EQ(node, vc_json_get_node_ex(root.get(), "o", nullptr));
    EXPECT_EQ(vc_json_get_value_object(root.get(), nullptr, &node), 1);
    EXPECT_EQ(node, root.get());
}

// Every getter on one path: 1, or 0 with its line and without a value.
class vc_json_getters : public vc_json_test {
  protected:
    double number = 7;
    int32_t small = 7;
    int64_t large = 7;
    int truth = 7;
    char *text = nullptr;
    vc_json *node = nullptr;

    int get(const std::string &getter, vc_json *root, const char *at) {
        if (getter == "float") {
            return vc_json_get_value_float(root, at, &number);
        }
        if (getter == "int") {
            return vc_json_get_value_int(root, at, &small);
        }
        if (getter == "int64") {
            return vc_json_get_value_int64(root, at, &large);
        }
        if (getter == "bool") {
            return vc_json_get_value_bool(root, at, &truth);
        }
        if (getter == "string") {
            return vc_json_get_value_string(root, at, &text);
        }
        return getter == "list" ? vc_json_get_value_list(root, at, &node)
                                : vc_json_get_value_object(root, at, &node);
    }
    void expect_untouched() {
        EXPECT_EQ(number, 7);
        EXPECT_EQ(small, 7);
        EXPECT_EQ(large, 7);
        EXPECT_EQ(truth, 7);
        EXPECT_EQ(text, nullptr);
        EXPECT_EQ(node, nullptr);
    }
};

TEST_F(vc_json_getters, another_type_is_refused) {
    const json root = parsed(values);
    const std::string number_type = "Error retrieved node is not of type number";
    const struct {
        const char *getter, *message;
        std::vector<const char *> paths;
    } cases[] = {
        {"float", number_type.c_str(), {"s", "t", "z", "a", "o"}},
        {"int", number_type.c_str(), {"s", "t", "z", "a", "o"}},
        {"int64", number_type.c_str(), {"s", "t", "z", "a", "o"}},
        {"bool", number_type.c_str(), {"n", "s", "z", "a", "o"}}, // the same words on purpose
        {"string", "Error retrieved node cannot be treated as a string", {"a", "o"}},
        {"list", "Error retrieved node is not of type array", {"n", "s", "t", "z", "o"}},
        {"object", "Error retrieved node is not of type object", {"n", "s", "t", "z", "a"}},
    };
    for (const auto &c : cases) {
        for (const char *at : c.paths) {
            EXPECT_EQ(get(c.getter, root.get(), at), 0) << c.getter << " " << at;
            EXPECT_EQ(log.errors(),
                      lines{std::string("vc_json_get_value_") + c.getter + ": " + c.message})
                << at;
        }
    }
    expect_untouched();
}

TEST_F(vc_json_getters, nothing_to_read) {
    const json root = parsed(values);
    const json empty(vc_json_create_node(nullptr, nullptr, nullptr, vc_json_type_number));
    for (const std::string getter : {"float", "int", "int64", "bool", "string", "list", "object"}) {
        const std::string function = "vc_json_get_value_" + getter;
        for (const std::string at : {"absent", "ea", "eo", "a[1]"}) {
            EXPECT_EQ(get(getter, root.get(), at.c_str()), 0);
            EXPECT_EQ(log.errors(), lines{function + ": Unable to retrieve node [" + at + "]"});
        }
        EXPECT_EQ(get(getter, empty.get(), nullptr), 0);
        EXPECT_EQ(log.errors(), lines{function + ": Unable to retrieve node [(null)]"});
        EXPECT_EQ(get(getter, nullptr, "a"), 0);
        EXPECT_EQ(log.errors(), lines{function + ": Invalid argument"});
    }
    expect_untouched();
    EXPECT_EQ(vc_json_get_value_int(root.get(), "i", nullptr), 0);
    EXPECT_EQ(vc_json_get_value_string(root.get(), "s", nullptr), 0);
    EXPECT_EQ(vc_json_get_value_list(root.get(), "a", nullptr), 0);
    EXPECT_EQ(log.errors(), (lines{"vc_json_get_value_int: Invalid argument",
                                   "vc_json_get_value_string: Invalid argument",
                                   "vc_json_get_value_list: Invalid argument"}));
}

TEST_F(vc_json_getters, a_boolean_is_true_or_false_to_the_letter) {
    const json root(vc_json_create_node_bool_ex(nullptr, nullptr, 1));
    std::memcpy(root->value, "True", 4);
    EXPECT_EQ(get("bool", root.get(), nullptr), 0);
    EXPECT_EQ(log.errors(), lines{"vc_json_get_value_bool: Error boolean node did not contain true "
                                  "or false"});
    expect_untouched();
}

TEST_F(vc_json_test, values_are_set) {
    const json root = parsed("{\"n\":1,\"t\":true,\"s\":\"x\",\"a\":[1],\"o\":{\"k\":1}}");
    EXPECT_EQ(vc_json_set_value_int(root.get(), "n", -5), 1);
    EXPECT_EQ(vc_json_set_value_bool(root.get(), "t", 0), 1);
    EXPECT_EQ(vc_json_set_value_string(root.get(), "s", "longer than it was"), 1);
    EXPECT_EQ(vc_json_set_value_int(root.get(), "a[0]", 2147483647), 1);
    EXPECT_EQ(vc_json_set_value_int64(root.get(), "o/k", INT64_MIN), 1);
    EXPECT_EQ(written(root.get()), "{\"n\":-5,\"t\":false,\"s\":\"longer than it was\","
                                   "\"a\":[2147483647],\"o\":{\"k\":-9223372036854775808}}");
    EXPECT_EQ(vc_json_set_value_float(root.get(), "n", 0.25), 1);
    EXPECT_EQ(vc_json_set_value_list(root.get(), "a", nullptr), 1);
    EXPECT_EQ(vc_json_set_value_object(root.get(), "o", nullptr), 1);
    EXPECT_EQ(vc_json_set_value_bool(vc_json_get_node_ex(root.get(), "t", nullptr), nullptr, 9), 1);
    EXPECT_EQ(written(root.get()),
              "{\"n\":0.25,\"t\":true,\"s\":\"longer than it was\",\"a\":[],\"o\":{}}");

    void **list = nullptr;
    vc_lstcat(&list, vc_json_create_node_null_ex(nullptr, nullptr));
    EXPECT_EQ(vc_json_set_value_list(root.get(), "a", reinterpret_cast<vc_json **>(list)), 1);
    EXPECT_EQ(vc_json_set_value_list(root.get(), "a", reinterpret_cast<vc_json **>(list)), 1);
    vc_hashmap *map = vc_map_create(0, 0);
    vc_map_store_ex(map, "m", vc_json_create_node_null_ex(nullptr, "m"), 8, 0, vc_json_free);
    EXPECT_EQ(vc_json_set_value_object(root.get(), "o", map), 1);
    EXPECT_EQ(written(root.get()), "{\"n\":0.25,\"t\":true,\"s\":\"longer than it was\","
                                   "\"a\":[null],\"o\":{\"m\":null}}");
}

TEST_F(vc_json_test, values_that_cannot_be_set) {
    const json root = parsed("{\"n\":1,\"t\":true,\"s\":\"x\",\"a\":[1],\"o\":{\"k\":1}}");
    vc_json *r = root.get();
    const auto refused = [this](int result, const std::string &line) {
        EXPECT_EQ(result, 0) << line;
        EXPECT_EQ(log.errors(), lines{line});
    };
    refused(vc_json_set_value_int(r, "absent", 1),
            "vc_json_set_value_int: Unable to retrieve node [absent]");
    refused(vc_json_set_value_int(nullptr, nullptr, 1), "vc_json_set_value_int: Invalid argument");
    refused(vc_json_set_value_int(r, "s", 1),
            "vc_json_set_value_int: Error retrieved node is not of type number: 4");
    refused(vc_json_set_value_int64(r, "t", 1),
            "vc_json_set_value_int64: Error retrieved node is not of type number: 8");
    refused(vc_json_set_value_float(r, nullptr, 1),
            "vc_json_set_value_float: Error retrieved node is not of type number: 64");
    refused(vc_json_set_value_float(r, "n", std::nan("")),
            "vc_json_set_value_float: Error input number contained invalid character");
    refused(vc_json_set_value_bool(r, "n", 1),
            "vc_json_set_value_bool: Error retrieved node is not of type boolean: 2");
    refused(vc_json_set_value_string(r, "n", "x"),
            "vc_json_set_value_string: Error retrieved node is not of type string: 2");
    refused(vc_json_set_value_string(r, "s", nullptr),
            "vc_json_set_value_string: Invalid argument");
    refused(vc_json_set_value_list(r, "o", nullptr),
            "vc_json_set_value_list: Error retrieved node is not of type array: 64");
    refused(vc_json_set_value_object(r, "a", nullptr),
            "vc_json_set_value_object: Error retrieved node is not of type object: 32");
    EXPECT_EQ(written(r), "{\"n\":1,\"t\":true,\"s\":\"x\",\"a\":[1],\"o\":{\"k\":1}}");
}

TEST_F(vc_json_test, floats_come_back) {
    std::mt19937_64 random(20240229);
    const json node(vc_json_create_node_float_ex(nullptr, nullptr, 0));
    const auto comes_back = [&](double value) {
        double read = 7;
        ASSERT_EQ(vc_json_set_value_float(node.get(), nullptr, value), 1) << value;
        ASSERT_EQ(vc_json_get_value_float(node.get(), nullptr, &read), 1) << value;
        EXPECT_EQ(read, value) << value_of(node.get());
    };
    for (const double value :
         {0.0, 1.0, -1.5, 0.1, 1e308, -1e-300, std::numeric_limits<double>::max(),
          std::numeric_limits<double>::lowest(), std::numeric_limits<double>::min()}) {
        comes_back(value);
    }
    for (int i = 0; i < 1000; ++i) {
        const uint64_t bits = random();
        double value;
        std::memcpy(&value, &bits, sizeof value);
        if (std::isnormal(value)) {
            comes_back(value);
        }
    }
}

// ---- Any document

// A random document beside its two forms, written by hand.
struct model {
    std::mt19937_64 random;

    size_t below(size_t limit) {
        return static_cast<size_t>(random() % limit);
    }
    std::string text() {
        static const char *const pieces[] = {"a",    "B",    "9", "{",  "]",        ",",       ":",
                                             "\\\"", "\\\\", " ", "\t", "\xC3\xA9", "\\u0000", "/"};
        std::string result;
        for (size_t i = below(6); i > 0; --i) {
            result += pieces[below(std::size(pieces))];
        }
        return result;
    }
    // Makes a value under parent (or the root) and gives its forms.
    vc_json *value(vc_json *parent, const char *name, int depth, std::string *compact,
                   std::string *pretty) {
        switch (below(depth > 4 ? 4 : 6)) {
        case 0:
            *compact = *pretty = std::to_string(static_cast<int>(below(2001)) - 1000);
            return vc_json_create_node(parent, name, compact->c_str(), vc_json_type_number);
        case 1: {
            const std::string string = text();
            *compact = *pretty = "\"" + string + "\"";
            return vc_json_create_node_string_ex(parent, name, string.c_str());
        }
        case 2:
            *compact = *pretty = "true";
            return vc_json_create_node_bool_ex(parent, name, 1);
        case 3:
            *compact = *pretty = "null";
            return vc_json_create_node_null_ex(parent, name);
        default:
            return complex(parent, name, depth, compact, pretty);
        }
    }
    vc_json *complex(vc_json *parent, const char *name, int depth, std::string *compact,
                     std::string *pretty) {
        const bool object = below(2) != 0;
        vc_json *node = object ? vc_json_create_node_object_ex(parent, name)
                               : vc_json_create_node_array_ex(parent, name);
        const size_t count = below(5);
        *compact = object ? "{" : "[";
        *pretty = *compact + (count ? "\n" : "");
        for (size_t i = 0; i < count; ++i) {
            const std::string member = "m" + std::to_string(i) + text();
            std::string inner, inner_pretty;
            value(node, object ? member.c_str() : nullptr, depth + 1, &inner, &inner_pretty);
            const std::string comma = i + 1 < count ? "," : "";
            *compact += (object ? "\"" + member + "\":" : "") + inner + comma;
            *pretty += std::string(4 * (static_cast<size_t>(depth) + 1), ' ') +
                       (object ? "\"" + member + "\": " : "") + inner_pretty + comma + "\n";
        }
        *compact += object ? "}" : "]";
        *pretty +=
            (count ? std::string(4 * static_cast<size_t>(depth), ' ') : "") + (object ? "}" : "]");
        return node;
    }
};

// The same types, names and values all the way down.
void expect_same_tree(vc_json *a, vc_json *b) {
    ASSERT_EQ(a->type, b->type);
    ASSERT_STREQ(a->name, b->name);
    if (a->type & vc_json_mask_scalar) {
        ASSERT_EQ(value_of(a), value_of(b));
    }
    const uint32_t count = vc_json_num_children(a);
    ASSERT_EQ(vc_json_num_children(b), count);
    for (uint32_t i = 0; i < count; ++i) {
        expect_same_tree(vc_json_node_index(a, i), vc_json_node_index(b, i));
    }
}

TEST_F(vc_json_test, random_trees_are_written_and_read_again) {
    model documents{std::mt19937_64(7)};
    for (int i = 0; i < 300; ++i) {
        std::string compact, indented;
        const json root(documents.complex(nullptr, nullptr, 0, &compact, &indented));
        ASSERT_TRUE(root);
        ASSERT_EQ(written(root.get()), compact);
        ASSERT_EQ(pretty(root.get()), indented + "\n");
        const json from_compact = parsed(compact);
        expect_same_tree(root.get(), from_compact.get());
        ASSERT_EQ(written(from_compact.get()), compact);
        const json from_pretty = parsed(indented);
        expect_same_tree(root.get(), from_pretty.get());
        ASSERT_EQ(written(from_pretty.get()), compact);
        ASSERT_EQ(pretty(from_pretty.get()), indented + "\n");
    }
}

// ---- Any change

// A document in the plainest form, and what its text must be.
struct plain_node {
    uint32_t type;
    std::string name; // of a member
    std::string text; // of a scalar, as a document has it
    std::vector<plain_node> children;

    bool is_complex() const {
        return (type & vc_json_mask_complex) != 0;
    }
    bool has_member(const std::string &wanted) const {
        return std::any_of(children.begin(), children.end(),
                           [&](const plain_node &child) { return child.name == wanted; });
    }
    std::string compact() const {
        if (!is_complex()) {
            return text;
        }
        const bool object = type == vc_json_type_object;
        std::string result = object ? "{" : "[";
        for (const plain_node &child : children) {
            result += (&child == &children.front() ? "" : ",") +
                      (object ? "\"" + child.name + "\":" : "") + child.compact();
        }
        return result + (object ? "}" : "]");
    }
};

// Where a random walk down a document has ended.
struct place {
    plain_node *node;
    plain_node *parent; // null for the root
    size_t index;       // of the node in its parent
    std::string path, parent_path;
};

// Changes a document and its plain form alike.
class edited_document {
  public:
    explicit edited_document(uint32_t seed) : random_(seed) {}
    vc_json *root() const {
        return root_.get();
    }
    const plain_node &plain() const {
        return plain_;
    }
    void change() {
        static void (edited_document::*const changes[])(const place &) = {
            &edited_document::add,    &edited_document::add, &edited_document::add,
            &edited_document::remove, &edited_document::set, &edited_document::rename};
        (this->*changes[below(std::size(changes))])(random_place());
    }
    // Asks for a random node in every way that leads to it.
    void look() {
        const place at = random_place();
        if (!at.parent) {
            return;
        }
        vc_json *holder = nullptr;
        vc_json *found = vc_json_get_node_ex(root(), at.path.c_str(), &holder);
        ASSERT_TRUE(found) << at.path;
        ASSERT_EQ(vc_json_find_node(root(), at.path.c_str()), found) << at.path;
        ASSERT_EQ(holder, node_at(at.parent_path)) << at.path;
        ASSERT_EQ(vc_json_node_index(holder, static_cast<uint32_t>(at.index)), found) << at.path;
        ASSERT_EQ(vc_json_num_children(holder), at.parent->children.size()) << at.path;
        ASSERT_EQ(vc_json_get_node_type(found), at.node->type) << at.path;
        if (!at.node->is_complex()) {
            const std::string quote = at.node->type == vc_json_type_string ? "\"" : "";
            ASSERT_EQ(quote + value_of(found) + quote, at.node->text) << at.path;
        }
    }

  private:
    size_t below(size_t limit) {
        return random_() % limit;
    }
    vc_json *node_at(const std::string &path) {
        return path.empty() ? root() : vc_json_get_node_ex(root(), path.c_str(), nullptr);
    }
    std::string some_name() {
        return "m" + std::to_string(below(8));
    }
    place random_place() {
        place at = {&plain_, nullptr, 0, "", ""};
        while (!at.node->children.empty() && below(4) != 0) {
            const size_t index = below(at.node->children.size());
            plain_node *child = &at.node->children[index];
            const std::string step = at.node->type == vc_json_type_array
                                         ? "[" + std::to_string(index) + "]"
                                         : (at.path.empty() ? "" : "/") + child->name;
            at = {child, at.node, index, at.path + step, at.path};
        }
        return at;
    }
    void add(const place &at) {
        if (!at.node->is_complex()) {
            return;
        }
        const bool object = at.node->type == vc_json_type_object;
        plain_node made = {};
        made.name = object ? some_name() : "";
        const char *name = object ? made.name.c_str() : nullptr;
        vc_json *parent = node_at(at.path);
        const vc_json *node = nullptr;
        switch (below(4)) {
        case 0:
            made.type = vc_json_type_array;
            node = vc_json_create_node_array_ex(parent, name);
            break;
        case 1:
            made.type = vc_json_type_object;
            node = vc_json_create_node_object_ex(parent, name);
            break;
        case 2:
            made.type = vc_json_type_bool;
            made.text = "false";
            node = vc_json_create_node_bool_ex(parent, name, 0);
            break;
        default:
            made.type = vc_json_type_number;
            made.text = std::to_string(below(1000));
            node = vc_json_create_node(parent, name, made.text.c_str(), vc_json_type_number);
        }
        const bool taken = object && at.node->has_member(made.name);
        ASSERT_EQ(node != nullptr, !taken) << at.path << ", " << made.name;
        if (!taken) {
            at.node->children.push_back(made);
        }
    }
    void remove(const place &at) {
        if (at.parent) {
            ASSERT_EQ(vc_json_remove_node(root(), at.path.c_str()), 1);
            at.parent->children.erase(at.parent->children.begin() +
                                      static_cast<std::ptrdiff_t>(at.index));
        }
    }
    void set(const place &at) {
        const char *path = at.parent ? at.path.c_str() : nullptr;
        if (at.node->type == vc_json_type_bool) {
            ASSERT_EQ(vc_json_set_value_bool(root(), path, 1), 1);
            at.node->text = "true";
        } else if (at.node->type == vc_json_type_number) {
            const auto number = static_cast<int64_t>(random_()) - 0x80000000;
            ASSERT_EQ(vc_json_set_value_int64(root(), path, number), 1);
            at.node->text = std::to_string(number);
        } else if (below(8) == 0) {
            ASSERT_EQ(at.node->type == vc_json_type_array
                          ? vc_json_set_value_list(root(), path, nullptr)
                          : vc_json_set_value_object(root(), path, nullptr),
                      1);
            at.node->children.clear();
        }
    }
    void rename(const place &at) {
        if (at.parent && at.parent->type == vc_json_type_object) {
            const std::string name = some_name();
            const bool taken = at.parent->has_member(name);
            ASSERT_EQ(vc_json_rename_node(root(), at.path.c_str(), name.c_str()), taken ? 0 : 1);
            at.node->name = taken ? at.node->name : name;
        }
    }

    std::mt19937 random_;
    plain_node plain_ = {vc_json_type_object, "", "", {}};
    json root_{vc_json_create_node_object_ex(nullptr, nullptr)};
};

TEST_F(vc_json_test, random_changes_do_what_they_do_to_a_plain_tree) {
    for (uint32_t seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(seed);
        edited_document document(seed);
        for (int step = 0; step < 300 && !HasFatalFailure(); ++step) {
            document.change();
            log.errors(); // names that were taken
            document.look();
            ASSERT_EQ(written(document.root()), document.plain().compact()) << step;
        }
        const json again = parsed(document.plain().compact());
        expect_same_tree(document.root(), again.get());
    }
}

// ---- Without memory

TEST_F(vc_json_test, walking_without_memory) {
    const std::string no_iterator = "vc_map_iterator_start_ex: " + text_of(ENOMEM);
    const json root = parsed("{\"a\":{\"b\":1}}");
    vc_json_iterator *walk = nullptr;
    for (unsigned n = 1; n <= 2; ++n) {
        {
            const failing_allocation failing(n);
            walk = vc_json_iterator_start(root.get());
        }
        EXPECT_EQ(walk, nullptr);
        EXPECT_EQ(log.errors(),
                  (lines{n == 1 ? "vc_json_iterator_start: " + text_of(ENOMEM) : no_iterator,
                         "vc_json_iterator_start: Failed to create iterator"}));
    }
    const vc_json *found = root.get();
    {
        const failing_allocation failing(2); // behind the name of the path
        found = vc_json_find_node(root.get(), "b");
    }
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(log.errors(),
              (lines{"vc_json_iterator_start: " + text_of(ENOMEM),
                     "vc_json_iterator_start: Failed to create iterator",
                     "vc_json_find_node: Failed to create json iterator for node: [(null)]"}));
}

TEST_F(vc_json_test, a_first_member_without_memory) {
    const json root(vc_json_create_node_object_ex(nullptr, nullptr));
    const json child(vc_json_create_node_null_ex(nullptr, "a"));
    int added;
    {
        const failing_allocation failing(1);
        added = vc_json_add_node(root.get(), child.get());
    }
    EXPECT_EQ(added, 0);
    EXPECT_EQ(log.errors(),
              (lines{"vc_map_create: " + text_of(ENOMEM),
                     "vc_json_add_node: Failed to create new map for parent object"}));
    EXPECT_EQ(written(root.get()), "{}");
}

// The dump stops where it can't walk, and says so.
TEST_F(vc_json_test, writing_without_memory) {
    const json root = parsed("[1,{\"a\":2},3]");
    FILE *stream = std::fopen(drive.native(path).c_str(), "wb");
    static char buffer[256]; // so that the stream allocates nothing
    ASSERT_EQ(std::setvbuf(stream, buffer, _IOFBF, sizeof buffer), 0);
    int complete;
    {
        const failing_allocation failing(1);
        complete = vc_json_dump(stream, root.get());
    }
    std::fclose(stream);
    EXPECT_EQ(complete, 0);
    EXPECT_EQ(log.errors(), (lines{"vc_map_iterator_start_ex: " + text_of(ENOMEM),
                                   "__vc_json_dump: Failed to create map iterator"}));
    EXPECT_EQ(drive.read(path), "[1,{");
}

// ---- Any text

constexpr char sample[] = "{\"a\":[1,-2.5,{\"b\":\"x\\\"y\\\\\"}],\"t\":TRUE,\"n\":null,"
                          "\"o\":{\"p\":{},\"q\":[[],[false]]}}";

// Parses a copy of exactly this size, so that a read behind its end is seen.
bool parses(const std::string &text) {
    const auto exact = std::make_unique<char[]>(text.size() + 1);
    std::memcpy(exact.get(), text.c_str(), text.size() + 1);
    const json root(vc_json_parse_string(exact.get()));
    return root != nullptr;
}

TEST_F(vc_json_test, no_prefix_of_a_document_is_one) {
    const std::string text = sample;
    EXPECT_TRUE(parses(text));
    for (size_t length = 0; length < text.size(); ++length) {
        EXPECT_FALSE(parses(text.substr(0, length))) << length;
        EXPECT_GT(log.errors().size(), 0u);
    }
}

TEST_F(vc_json_test, a_damaged_document_fails_with_lines_or_parses) {
    const std::string text = sample;
    for (size_t position = 0; position < text.size(); ++position) {
        for (int byte = 0; byte < 256; ++byte) {
            std::string damaged = text;
            damaged[position] = static_cast<char>(byte);
            const bool good = parses(damaged);
            EXPECT_NE(good, log.errors().size() > 0) << position << " " << byte;
        }
    }
}

} // namespace
