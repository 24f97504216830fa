// Texts and files that parse, and those that do not.
#include <string>
#include <vector>

#include "vc_json_document.h"
#include "vc_nulltermlist.h"

namespace quillfence::testing {
namespace {

// --- Parsing ---

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

// --- Files ---

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

} // namespace
} // namespace quillfence::testing
