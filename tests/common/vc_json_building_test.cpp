// Making nodes and documents, and writing them.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

#include "vc_json_document.h"
#include "vc_nulltermlist.h"

namespace quillfence::testing {
namespace {

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

} // namespace
} // namespace quillfence::testing
