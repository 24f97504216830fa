// Removing, renaming, reading and setting.
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "vc_json_document.h"
#include "vc_nulltermlist.h"

namespace quillfence::testing {
namespace {

// --- Changing ---

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

// --- Values ---

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

} // namespace
} // namespace quillfence::testing
