#include "vc_list.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>

#include "failing_memory.h"
#include "heap_text.h"
#include "log_capture.h"

namespace quillfence::testing {
namespace {

const std::string einval = strerror(EINVAL);
const std::string enomem = strerror(ENOMEM);

// A list that is destroyed with free in the end.
struct owned_list {
    vc_list_entry *head = nullptr;
    owned_list() = default;
    explicit owned_list(const std::vector<std::string> &texts) {
        for (const std::string &text : texts) {
            vc_append_list_entry(&head, text.c_str(), text.size() + 1, 1);
        }
    }
    explicit owned_list(vc_list_entry *made) : head(made) {}
    ~owned_list() {
        vc_destroy_list(&head, free);
    }
    owned_list(const owned_list &) = delete;
    owned_list &operator=(const owned_list &) = delete;
};

lines texts_of(const vc_list_entry *list) {
    lines texts;
    for (; list; list = list->next) {
        texts.push_back(shown(static_cast<const char *>(list->data)));
    }
    return texts;
}

std::vector<uint64_t> sizes_of(const vc_list_entry *list) {
    std::vector<uint64_t> sizes;
    for (; list; list = list->next) {
        sizes.push_back(list->size);
    }
    return sizes;
}

int released;
void count_release(void *data) {
    ++released;
    free(data);
}

// DEBUG lines are on: a list writes none, and every line is looked at.
class lists : public traced_test {};

TEST_F(lists, append_returns_the_count) {
    owned_list list;
    EXPECT_EQ(vc_append_list_entry(&list.head, "a", 2, 1), 1);
    EXPECT_EQ(vc_append_list_entry(&list.head, "b", 2, 1), 2);
    EXPECT_EQ(vc_append_list_entry(&list.head, "c", 2, 1), 3);
    EXPECT_EQ(texts_of(list.head), (lines{"a", "b", "c"}));
    EXPECT_EQ(sizes_of(list.head), (std::vector<uint64_t>{2, 2, 2}));
    EXPECT_EQ(log.transcript(), lines{});
}

// Kept on purpose: not the count.
TEST_F(lists, prepend_returns_1) {
    owned_list list;
    EXPECT_EQ(vc_prepend_list_entry(&list.head, "a", 2, 1), 1);
    EXPECT_EQ(vc_prepend_list_entry(&list.head, "b", 2, 1), 1);
    EXPECT_EQ(vc_prepend_list_entry(&list.head, "c", 2, 1), 1);
    EXPECT_EQ(texts_of(list.head), (lines{"c", "b", "a"}));
}

TEST_F(lists, copy_flag_decides_who_owns_the_data) {
    owned_list list;
    char bytes[] = {'x', '\0', 'y'};
    char *const handed_over = heap_text("mine");
    vc_append_list_entry(&list.head, bytes, sizeof bytes, 1);
    vc_append_list_entry(&list.head, handed_over, 5, 0);
    vc_prepend_list_entry(&list.head, bytes, sizeof bytes, 1);
    bytes[0] = '?';
    ASSERT_EQ(vc_list_count(list.head), 3);
    EXPECT_EQ(memcmp(list.head->data, "x\0y", 3), 0);
    EXPECT_EQ(memcmp(list.head->next->data, "x\0y", 3), 0);
    EXPECT_EQ(list.head->next->next->data, handed_over);
}

TEST_F(lists, adding_refuses_null_and_nothing) {
    owned_list list;
    EXPECT_EQ(vc_append_list_entry(nullptr, "a", 2, 1), -1);
    EXPECT_EQ(vc_append_list_entry(&list.head, nullptr, 2, 1), -1);
    EXPECT_EQ(vc_append_list_entry(&list.head, "a", 0, 1), -1);
    EXPECT_EQ(vc_prepend_list_entry(nullptr, "a", 2, 1), -1);
    EXPECT_EQ(vc_prepend_list_entry(&list.head, nullptr, 2, 1), -1);
    EXPECT_EQ(vc_prepend_list_entry(&list.head, "a", 0, 1), -1);
    EXPECT_EQ(list.head, nullptr);
    const std::string append = "E vc_append_list_entry: " + einval;
    const std::string prepend = "E vc_prepend_list_entry: " + einval;
    EXPECT_EQ(log.transcript(), (lines{append, append, append, prepend, prepend, prepend}));
}

TEST_F(lists, adding_without_memory) {
    const struct {
        const char *name;
        int (*add)(vc_list_entry **, const void *, uint64_t, int);
    } cases[] = {
        {"vc_append_list_entry", vc_append_list_entry},
        {"vc_prepend_list_entry", vc_prepend_list_entry},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        owned_list list({"a"});
        int no_node, no_copy;
        {
            failing_allocation failing(1);
            no_node = c.add(&list.head, "b", 2, 1);
        }
        {
            failing_allocation failing(2);
            no_copy = c.add(&list.head, "b", 2, 1);
        }
        EXPECT_EQ(no_node, -2);
        EXPECT_EQ(no_copy, -3);
        EXPECT_EQ(texts_of(list.head), (lines{"a"}));
        EXPECT_EQ(log.transcript(), lines(2, std::string("E ") + c.name + ": " + enomem));
    }
}

TEST_F(lists, destroy) {
    released = 0;
    vc_list_entry *list = nullptr;
    vc_append_list_entry(&list, "a", 2, 1);
    vc_append_list_entry(&list, "b", 2, 1);
    vc_append_list_entry(&list, "c", 2, 1);
    free(list->next->data);
    list->next->data = nullptr;
    vc_destroy_list(&list, count_release);
    EXPECT_EQ(released, 2) << "an entry without data is not released";
    EXPECT_EQ(list, nullptr);
    vc_destroy_list(&list, count_release);
    EXPECT_EQ(released, 2);

    char not_heap[] = "a";
    vc_append_list_entry(&list, not_heap, 2, 0);
    vc_destroy_list(&list, nullptr);
    EXPECT_EQ(list, nullptr);
    EXPECT_STREQ(not_heap, "a");
    EXPECT_EQ(log.transcript(), lines{});

    vc_destroy_list(nullptr, free);
    EXPECT_EQ(log.transcript(), (lines{"E vc_destroy_list: " + einval}));
}

TEST_F(lists, count) {
    owned_list list({"a", "b"});
    EXPECT_EQ(vc_list_count(nullptr), 0);
    EXPECT_EQ(vc_list_count(list.head), 2);
}

// Searching

TEST_F(lists, search_compares_the_shorter_length) {
    owned_list list;
    vc_append_list_entry(&list.head, "ab", 2, 1);
    vc_append_list_entry(&list.head, "abcd", 4, 1);
    vc_append_list_entry(&list.head, "xyz", 3, 1);
    const struct {
        const char *name, *key;
        size_t length;
        int want; // place in the list, -1 for none
    } cases[] = {
        {"the same", "xyz", 3, 2},           {"shorter key", "x", 1, 2},
        {"longer key", "xyzzy", 5, 2},       {"first of two that agree", "abcd", 4, 0},
        {"only a part agrees", "xa", 2, -1}, {"none", "q", 1, -1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        vc_list_entry *const want = c.want < 0 ? nullptr : vc_list_pindex(list.head, c.want);
        EXPECT_EQ(vc_list_search(list.head, c.key, c.length, memcmp), want);
        EXPECT_EQ(vc_list_contains(list.head, c.key, c.length, memcmp), want != nullptr);
    }
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(lists, search_skips_entries_without_data_and_accepts_an_empty_list) {
    owned_list list({"a", "b"});
    free(list.head->data);
    list.head->data = nullptr;
    EXPECT_EQ(vc_list_search(list.head, "b", 1, memcmp), list.head->next);
    EXPECT_EQ(vc_list_search_string(list.head, "b", 0), list.head->next);
    EXPECT_EQ(vc_list_search(nullptr, "b", 1, memcmp), nullptr);
    EXPECT_EQ(vc_list_search_string(nullptr, "b", 0), nullptr);
    EXPECT_EQ(vc_list_contains(nullptr, "b", 1, memcmp), 0);
    EXPECT_EQ(vc_list_contains_string(nullptr, "b", 0), 0);
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(lists, search_refuses) {
    owned_list list({"a"});
    EXPECT_EQ(vc_list_search(list.head, nullptr, 1, memcmp), nullptr);
    EXPECT_EQ(vc_list_search(list.head, "a", 0, memcmp), nullptr);
    EXPECT_EQ(vc_list_search(list.head, "a", 1, nullptr), nullptr);
    EXPECT_EQ(vc_list_contains(list.head, nullptr, 1, memcmp), 0);
    EXPECT_EQ(log.transcript(), lines(4, "E vc_list_search: " + einval));
    EXPECT_EQ(vc_list_search_string(list.head, nullptr, 0), nullptr);
    EXPECT_EQ(vc_list_contains_string(list.head, nullptr, 0), 0);
    EXPECT_EQ(log.transcript(), lines(2, "E vc_list_search_string: " + einval));
}

TEST_F(lists, search_string_compares_whole_texts) {
    owned_list list({"one", "Two", "two", ""});
    const struct {
        const char *text;
        int ignore_case, want;
    } cases[] = {
        {"two", 0, 2}, {"two", 1, 1}, {"TWO", 0, -1},  {"TWO", 1, 1},
        {"tw", 1, -1}, {"", 0, 3},    {"twos", 1, -1}, {"one", 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        vc_list_entry *const want = c.want < 0 ? nullptr : vc_list_pindex(list.head, c.want);
        EXPECT_EQ(vc_list_search_string(list.head, c.text, c.ignore_case), want);
        EXPECT_EQ(vc_list_contains_string(list.head, c.text, c.ignore_case), want != nullptr);
    }
}

// Removing

TEST_F(lists, remove_releases_data_and_node) {
    const struct {
        int place;
        lines want;
    } cases[] = {{0, {"b", "c"}}, {1, {"a", "c"}}, {2, {"a", "b"}}};
    for (const auto &c : cases) {
        owned_list list({"a", "b", "c"});
        released = 0;
        EXPECT_EQ(
            vc_list_remove_ex(&list.head, vc_list_pindex(list.head, c.place), 1, count_release), 1);
        EXPECT_EQ(texts_of(list.head), c.want);
        EXPECT_EQ(released, 1);
    }
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(lists, remove_of_the_only_entry_leaves_an_empty_list) {
    owned_list list({"a"});
    EXPECT_EQ(vc_list_remove_ex(&list.head, list.head, 1, free), 1);
    EXPECT_EQ(list.head, nullptr);
}

TEST_F(lists, remove_without_release_hands_the_node_over) {
    const struct {
        const char *name;
        int flag;
        vc_release_function release;
    } cases[] = {{"no flag", 0, count_release}, {"no function", 1, nullptr}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        owned_list list({"a", "b", "c"});
        vc_list_entry *node = list.head->next;
        released = 0;
        EXPECT_EQ(vc_list_remove_ex(&list.head, node, c.flag, c.release), 1);
        EXPECT_EQ(texts_of(list.head), (lines{"a", "c"}));
        EXPECT_EQ(node->next, nullptr);
        EXPECT_STREQ(static_cast<char *>(node->data), "b");
        EXPECT_EQ(released, 0);
        vc_destroy_list(&node, free);
    }
}

TEST_F(lists, remove_of_an_entry_without_data) {
    owned_list list({"a", "b"});
    free(list.head->data);
    list.head->data = nullptr;
    released = 0;
    EXPECT_EQ(vc_list_remove_ex(&list.head, list.head, 1, count_release), 1);
    EXPECT_EQ(released, 0);
    EXPECT_EQ(texts_of(list.head), (lines{"b"}));
}

TEST_F(lists, remove_of_a_node_that_is_not_in_the_list) {
    owned_list list({"a", "b"}), other({"x"});
    EXPECT_EQ(vc_list_remove_ex(&list.head, other.head, 1, free), 0);
    EXPECT_EQ(texts_of(list.head), (lines{"a", "b"}));
    EXPECT_EQ(texts_of(other.head), (lines{"x"}));
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(lists, remove_refuses) {
    owned_list list({"a"}), empty;
    EXPECT_EQ(vc_list_remove_ex(nullptr, list.head, 1, free), 0);
    EXPECT_EQ(vc_list_remove_ex(&empty.head, list.head, 1, free), 0);
    EXPECT_EQ(vc_list_remove_ex(&list.head, nullptr, 1, free), 0);
    EXPECT_EQ(log.transcript(), lines(3, "E vc_list_remove_ex: " + einval));
}

// Joining and splitting

TEST_F(lists, join) {
    const struct {
        lines texts;
        const char *separator, *want;
    } cases[] = {
        {{"a"}, ", ", "a"},
        {{"a", "b", "c"}, ", ", "a, b, c"},
        {{"a", "", "c"}, "", "ac"},
        {{"", ""}, "-", "-"},
    };
    for (const auto &c : cases) {
        owned_list list(c.texts);
        text_slot joined;
        joined.text = vc_list_join(list.head, c.separator);
        EXPECT_EQ(joined.str(), c.want);
    }
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(lists, join_leaves_out_later_entries_without_data) {
    owned_list list({"a", "b", "c"});
    free(list.head->next->data);
    list.head->next->data = nullptr;
    text_slot joined;
    joined.text = vc_list_join(list.head, ", ");
    EXPECT_EQ(joined.str(), "a, c");
    free(list.head->data);
    list.head->data = nullptr;
    EXPECT_EQ(vc_list_join(list.head, ", "), nullptr);
    EXPECT_EQ(log.transcript(), lines{}) << "without a line";
}

TEST_F(lists, join_fails) {
    owned_list list({"a"});
    EXPECT_EQ(vc_list_join(nullptr, ","), nullptr);
    EXPECT_EQ(vc_list_join(list.head, nullptr), nullptr);
    {
        failing_allocation failing(1);
        EXPECT_EQ(vc_list_join(list.head, ","), nullptr);
    }
    EXPECT_EQ(log.transcript(), (lines{"E vc_list_join: " + einval, "E vc_list_join: " + einval,
                                       "E vc_list_join: " + enomem}));
}

TEST_F(lists, split) {
    const struct {
        const char *text, *delimiter;
        lines want;
    } cases[] = {
        {"a::b::", "::", {"a", "b", ""}}, {"a::b", "::", {"a", "b"}}, {"::a", "::", {"", "a"}},
        {"a::::b", "::", {"a", "", "b"}}, {"a:b", "::", {"a:b"}},     {"::", "::", {"", ""}},
        {":::", "::", {"", ":"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        owned_list list(vc_list_split(c.text, c.delimiter));
        EXPECT_EQ(texts_of(list.head), c.want);
        for (const vc_list_entry *node = list.head; node; node = node->next) {
            EXPECT_EQ(node->size, strlen(static_cast<const char *>(node->data)) + 1);
        }
    }
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(lists, split_refuses) {
    EXPECT_EQ(vc_list_split(nullptr, ","), nullptr);
    EXPECT_EQ(vc_list_split("", ","), nullptr);
    EXPECT_EQ(vc_list_split("a", nullptr), nullptr);
    EXPECT_EQ(vc_list_split("a", ""), nullptr);
    EXPECT_EQ(log.transcript(), lines(4, "E vc_list_split: " + einval));
}

TEST_F(lists, split_without_memory_leaves_nothing) {
    vc_list_entry *list = nullptr;
    const unsigned failed = sweep_allocations(
        [&] {
            vc_destroy_list(&list, free);
            list = vc_list_split("a,b", ",");
        },
        [&](unsigned n) {
            EXPECT_EQ(list, nullptr) << "allocation " << n;
            EXPECT_EQ(log.transcript(), (lines{"E vc_list_split: " + enomem}));
        });
    EXPECT_EQ(failed, 4u) << "a piece and a node, twice";
    EXPECT_EQ(texts_of(list), (lines{"a", "b"}));
    vc_destroy_list(&list, free);
}

TEST_F(lists, from_string_by_char) {
    const struct {
        const char *buffer;
        size_t length;
        lines want;
        std::vector<uint64_t> want_sizes;
    } cases[] = {
        {"a,b", 3, {"a", "b"}, {3, 3}},
        {"a,b,", 4, {"a", "b", ""}, {3, 3, 1}},
        {",a", 2, {"", "a"}, {1, 3}},
        {",,", 2, {"", "", ""}, {1, 1, 1}},
        {"abc", 3, {"abc"}, {5}},
        {"abc,d", 2, {"ab"}, {4}},
        {"", 0, {""}, {1}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.buffer, c.length));
        owned_list list;
        EXPECT_EQ(vc_list_from_string_by_char(&list.head, c.buffer, c.length, ','), 1);
        EXPECT_EQ(texts_of(list.head), c.want);
        EXPECT_EQ(sizes_of(list.head), c.want_sizes);
    }
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(lists, from_string_by_char_appends_and_ends_pieces_in_two_nuls) {
    owned_list list({"first"});
    const char buffer[] = {'x', '\0', 'y', '\n', 'z'}; // no NUL at the end
    EXPECT_EQ(vc_list_from_string_by_char(&list.head, buffer, sizeof buffer, '\n'), 1);
    ASSERT_EQ(sizes_of(list.head), (std::vector<uint64_t>{6, 5, 3}));
    EXPECT_EQ(memcmp(list.head->next->data, "x\0y\0", 5), 0);
    EXPECT_EQ(memcmp(list.head->next->next->data, "z\0", 3), 0);
}

TEST_F(lists, from_string_by_char_refuses_null) {
    owned_list list;
    EXPECT_EQ(vc_list_from_string_by_char(nullptr, "a", 1, ','), 0);
    EXPECT_EQ(vc_list_from_string_by_char(&list.head, nullptr, 1, ','), 0);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(log.transcript(), lines(2, "E vc_list_from_string_by_char: " + einval));
}

TEST_F(lists, from_string_by_char_without_memory_keeps_the_pieces_before) {
    const std::string no_piece = "E vc_list_from_string_by_char: " + enomem;
    const std::string no_append = std::string("E vc_list_from_string_by_char: ") + strerror(125);
    const struct {
        const std::string &want_line;
        lines want;
    } steps[] = {
        {no_piece, {}},
        {no_append, {}},
        {no_piece, {"a"}},
        {no_append, {"a"}},
    };
    vc_list_entry *list = nullptr;
    int result = -1;
    const unsigned failed = sweep_allocations(
        [&] {
            vc_destroy_list(&list, free);
            result = vc_list_from_string_by_char(&list, "a,b", 3, ',');
        },
        [&](unsigned n) {
            SCOPED_TRACE(n);
            EXPECT_EQ(result, 0);
            ASSERT_LE(n, std::size(steps));
            EXPECT_EQ(texts_of(list), steps[n - 1].want);
            EXPECT_EQ(log.transcript(), (lines{steps[n - 1].want_line}));
        });
    EXPECT_EQ(failed, std::size(steps));
    EXPECT_EQ(result, 1);
    vc_destroy_list(&list, free);
}

// Sorting and positions

int by_text(const vc_list_entry *a, const vc_list_entry *b) {
    return strcmp(static_cast<const char *>(a->data), static_cast<const char *>(b->data));
}
int by_first_letter(const vc_list_entry *a, const vc_list_entry *b) {
    return *static_cast<const char *>(a->data) - *static_cast<const char *>(b->data);
}
int all_equal(const vc_list_entry *, const vc_list_entry *) {
    return 0;
}

TEST_F(lists, sort) {
    const struct {
        const char *name;
        lines texts;
        vc_list_compare compare;
        lines want;
    } cases[] = {
        {"empty", {}, by_text, {}},
        {"one", {"a"}, by_text, {"a"}},
        {"two", {"b", "a"}, by_text, {"a", "b"}},
        {"odd number", {"c", "e", "a", "d", "b"}, by_text, {"a", "b", "c", "d", "e"}},
        {"equal entries keep their order",
         {"b1", "a1", "b2", "a2"},
         by_first_letter,
         {"a1", "a2", "b1", "b2"}},
        {"all equal", {"c", "a", "b"}, all_equal, {"c", "a", "b"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        owned_list list(c.texts);
        EXPECT_EQ(vc_list_sort(&list.head, c.compare), 1);
        EXPECT_EQ(texts_of(list.head), c.want);
    }
    EXPECT_EQ(log.transcript(), lines{});
    owned_list list({"b", "a"});
    EXPECT_EQ(vc_list_sort(nullptr, by_text), 0);
    EXPECT_EQ(vc_list_sort(&list.head, nullptr), 0);
    EXPECT_EQ(texts_of(list.head), (lines{"b", "a"}));
    EXPECT_EQ(log.transcript(), lines(2, "E vc_list_sort: " + einval));
}

TEST_F(lists, positions) {
    owned_list list({"a", "b", "c"});
    vc_list_entry *const second = list.head->next;
    const struct {
        int32_t index;
        vc_list_entry *want;
    } cases[] = {{-5, list.head}, {0, list.head}, {1, second}, {2, second->next}};
    for (const auto &c : cases) {
        EXPECT_EQ(vc_list_pindex(list.head, c.index), c.want) << c.index;
        EXPECT_EQ(vc_list_index_data(list.head, c.index), c.want->data) << c.index;
    }
    EXPECT_EQ(vc_list_pindex(nullptr, 0), nullptr) << "the head of an empty list";
    EXPECT_EQ(log.transcript(), lines{});
    EXPECT_EQ(vc_list_pindex(list.head, 3), nullptr);
    EXPECT_EQ(vc_list_pindex(list.head, INT32_MAX), nullptr);
    EXPECT_EQ(vc_list_pindex(nullptr, 1), nullptr);
    EXPECT_EQ(vc_list_index_data(list.head, 3), nullptr);
    EXPECT_EQ(log.transcript(), lines(4, std::string("E vc_list_pindex: ") + strerror(ERANGE)));
}

// The same on std::vector.

TEST_F(lists, behave_like_a_vector) {
    std::mt19937 random(7);
    owned_list list;
    lines model;
    for (int round = 0; round < 20000; ++round) {
        const std::string text = std::to_string(random() % 50);
        switch (random() % 5) {
        case 0:
            ASSERT_EQ(vc_append_list_entry(&list.head, text.c_str(), text.size() + 1, 1),
                      static_cast<int>(model.size()) + 1);
            model.push_back(text);
            break;
        case 1:
            ASSERT_EQ(vc_prepend_list_entry(&list.head, text.c_str(), text.size() + 1, 1), 1);
            model.insert(model.begin(), text);
            break;
        case 2: {
            const auto found = std::find(model.begin(), model.end(), text);
            vc_list_entry *const node = vc_list_search_string(list.head, text.c_str(), 0);
            ASSERT_EQ(node != nullptr, found != model.end());
            if (node) {
                ASSERT_EQ(vc_list_remove_ex(&list.head, node, 1, free), 1);
                model.erase(found);
            }
            break;
        }
        case 3:
            if (!model.empty()) {
                const size_t place = random() % model.size();
                ASSERT_EQ(
                    static_cast<char *>(vc_list_index_data(list.head, static_cast<int32_t>(place))),
                    model[place]);
            }
            break;
        default:
            if (random() % 100 == 0) {
                ASSERT_EQ(vc_list_sort(&list.head, by_first_letter), 1);
                std::stable_sort(
                    model.begin(), model.end(),
                    [](const std::string &a, const std::string &b) { return a[0] < b[0]; });
            }
        }
        ASSERT_EQ(vc_list_count(list.head), static_cast<int>(model.size()));
    }
    EXPECT_EQ(texts_of(list.head), model);
}

// The pieces of a text between delimiters.
lines pieces_of(const std::string &text, const std::string &delimiter) {
    lines pieces;
    size_t from = 0;
    for (size_t at; (at = text.find(delimiter, from)) != std::string::npos;
         from = at + delimiter.size()) {
        pieces.push_back(text.substr(from, at - from));
    }
    pieces.push_back(text.substr(from));
    return pieces;
}

TEST_F(lists, splitting_and_joining_like_strings) {
    std::mt19937 random(13);
    const auto text = [&](size_t shortest, size_t longest) {
        std::string made(shortest + random() % (longest - shortest + 1), ' ');
        for (char &c : made) {
            c = "ab,"[random() % 3];
        }
        return made;
    };
    for (int round = 0; round < 10000; ++round) {
        const std::string whole = text(1, 20);
        const std::string delimiter = text(1, 3);
        const std::string separator = text(0, 3);
        SCOPED_TRACE(whole + " by " + delimiter);
        const lines want = pieces_of(whole, delimiter);
        owned_list pieces(vc_list_split(whole.c_str(), delimiter.c_str()));
        ASSERT_EQ(texts_of(pieces.head), want);
        std::string want_joined = want[0];
        for (size_t i = 1; i < want.size(); ++i) {
            want_joined += separator + want[i];
        }
        text_slot joined;
        joined.text = vc_list_join(pieces.head, separator.c_str());
        ASSERT_EQ(joined.str(), want_joined);
        owned_list by_char;
        ASSERT_EQ(
            vc_list_from_string_by_char(&by_char.head, whole.data(), whole.size(), delimiter[0]),
            1);
        ASSERT_EQ(texts_of(by_char.head), pieces_of(whole, delimiter.substr(0, 1)));
    }
}

} // namespace
} // namespace quillfence::testing
