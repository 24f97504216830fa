// Paths, children and walks.
#include <string>

#include "vc_json_document.h"

namespace quillfence::testing {
namespace {

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

} // namespace
} // namespace quillfence::testing
