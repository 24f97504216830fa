#include "vc_nulltermlist.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <random>

#include "failing_memory.h"
#include "heap_text.h"
#include "log_capture.h"

namespace quillfence::testing {
namespace {

const std::string einval = strerror(EINVAL);
const std::string enomem = strerror(ENOMEM);

// An array that is released in the end, with or without its elements.
struct owned_array {
    void **elements = nullptr;
    vc_element_release release;
    explicit owned_array(vc_element_release with = nullptr) : release(with) {}
    ~owned_array() {
        vc_lstfree(&elements, release);
    }
    owned_array(const owned_array &) = delete;
    owned_array &operator=(const owned_array &) = delete;
};

lines texts_of(void **list) {
    lines texts;
    for (; list && *list; ++list) {
        texts.push_back(static_cast<const char *>(*list));
    }
    return texts;
}

int compare_texts(const void *element, const void *value) {
    return strcmp(static_cast<const char *>(element), static_cast<const char *>(value));
}

int released;
void count_release(void *) {
    ++released;
}

char a[] = "a", b[] = "b", c[] = "c", other_a[] = "a";

// DEBUG lines are on: these operations write none, and every line is looked at.
class arrays : public traced_test {
  protected:
    static void fill(owned_array *array, std::initializer_list<char *> elements) {
        for (char *element : elements) {
            vc_lstcat(&array->elements, element);
        }
    }
};

TEST_F(arrays, cat_makes_and_grows_the_array) {
    owned_array array;
    EXPECT_EQ(vc_lstcat(&array.elements, a), array.elements);
    EXPECT_EQ(texts_of(array.elements), (lines{"a"}));
    EXPECT_EQ(vc_lstcat(&array.elements, b), array.elements);
    EXPECT_EQ(vc_lstcat(&array.elements, a), array.elements);
    EXPECT_EQ(texts_of(array.elements), (lines{"a", "b", "a"}));
    EXPECT_EQ(array.elements[0], a) << "the pointer, not a copy";
    EXPECT_EQ(array.elements[3], nullptr);
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(arrays, cat_fails) {
    owned_array array;
    EXPECT_EQ(vc_lstcat(static_cast<void ***>(nullptr), a), nullptr);
    EXPECT_EQ(vc_lstcat(&array.elements, nullptr), nullptr);
    EXPECT_EQ(log.transcript(), lines(2, "E vc_lstcat: " + einval));
    {
        failing_allocation failing(1);
        EXPECT_EQ(vc_lstcat(&array.elements, a), nullptr);
    }
    EXPECT_EQ(array.elements, nullptr);
    vc_lstcat(&array.elements, a);
    {
        failing_allocation failing(1);
        EXPECT_EQ(vc_lstcat(&array.elements, b), nullptr);
    }
    EXPECT_EQ(texts_of(array.elements), (lines{"a"}));
    EXPECT_EQ(log.transcript(), lines(2, "E vc_lstcat: " + enomem));
}

TEST_F(arrays, append) {
    owned_array first, second;
    fill(&first, {a});
    fill(&second, {b, c});
    EXPECT_EQ(vc_lstappend(&first.elements, second.elements), first.elements);
    EXPECT_EQ(texts_of(first.elements), (lines{"a", "b", "c"}));
    EXPECT_EQ(texts_of(second.elements), (lines{"b", "c"}));
    EXPECT_EQ(first.elements[1], b);
    EXPECT_EQ(first.elements[3], nullptr);
    EXPECT_EQ(vc_lstappend(&first.elements, first.elements), first.elements);
    EXPECT_EQ(texts_of(first.elements), (lines{"a", "b", "c", "a", "b", "c"}));
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(arrays, append_with_absent_arrays) {
    owned_array first, second;
    EXPECT_NE(vc_lstappend(&first.elements, nullptr), nullptr);
    EXPECT_EQ(vc_lstcount(first.elements), 0u);
    fill(&second, {a});
    owned_array absent;
    EXPECT_EQ(vc_lstappend(&absent.elements, second.elements), absent.elements);
    EXPECT_EQ(texts_of(absent.elements), (lines{"a"}));
    EXPECT_EQ(vc_lstappend(&absent.elements, first.elements), absent.elements);
    EXPECT_EQ(texts_of(absent.elements), (lines{"a"}));
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(arrays, append_fails) {
    owned_array first, second;
    fill(&first, {a});
    fill(&second, {b});
    EXPECT_EQ(vc_lstappend(nullptr, second.elements), nullptr);
    {
        failing_allocation failing(1);
        EXPECT_EQ(vc_lstappend(&first.elements, second.elements), nullptr);
    }
    EXPECT_EQ(texts_of(first.elements), (lines{"a"}));
    EXPECT_EQ(log.transcript(), (lines{"E vc_lstappend: " + einval, "E vc_lstappend: " + enomem}));
}

TEST_F(arrays, find) {
    owned_array array;
    fill(&array, {a, b, a});
    EXPECT_EQ(vc_lstfind(array.elements, b, nullptr), array.elements + 1);
    EXPECT_EQ(vc_lstfind(array.elements, a, nullptr), array.elements);
    EXPECT_EQ(vc_lstfind(array.elements, other_a, nullptr), nullptr) << "by pointer";
    EXPECT_EQ(vc_lstfind(array.elements, other_a, compare_texts), array.elements);
    EXPECT_EQ(vc_lstfind(array.elements, "b", compare_texts), array.elements + 1);
    EXPECT_EQ(vc_lstfind(array.elements, "c", compare_texts), nullptr);
    EXPECT_EQ(log.transcript(), lines{});
    EXPECT_EQ(vc_lstfind(nullptr, a, nullptr), nullptr);
    EXPECT_EQ(vc_lstfind(array.elements, nullptr, nullptr), nullptr);
    EXPECT_EQ(log.transcript(), lines(2, "E vc_lstfind: " + einval));
}

TEST_F(arrays, equal) {
    void *empty[] = {nullptr}, *also_empty[] = {nullptr};
    void *ab[] = {a, b, nullptr}, *same_ab[] = {a, b, nullptr};
    void *other_ab[] = {other_a, b, nullptr};
    void *longer[] = {a, b, c, nullptr}, *ba[] = {b, a, nullptr};
    const struct {
        const char *name;
        void **left, **right;
        vc_element_compare compare;
        int want;
    } cases[] = {
        {"two empty ones", empty, also_empty, nullptr, 1},
        {"two empty ones, compared", empty, also_empty, compare_texts, 1},
        {"the same pointers", ab, same_ab, nullptr, 1},
        {"equal texts by pointer", ab, other_ab, nullptr, 0},
        {"equal texts compared", ab, other_ab, compare_texts, 1},
        {"other order", ab, ba, compare_texts, 0},
        {"right one longer", ab, longer, compare_texts, 0},
        {"left one longer", longer, ab, compare_texts, 0},
        {"one empty", ab, empty, nullptr, 0},
    };
    for (const auto &test : cases) {
        EXPECT_EQ(vc_lstequal(test.left, test.right, test.compare), test.want) << test.name;
    }
    EXPECT_EQ(log.transcript(), lines{});
    EXPECT_EQ(vc_lstequal(nullptr, ab, nullptr), -1);
    EXPECT_EQ(vc_lstequal(ab, nullptr, nullptr), -1);
    EXPECT_EQ(log.transcript(), lines(2, "E vc_lstequal: " + einval));
}

TEST_F(arrays, splode) {
    const struct {
        const char *text;
        int keep_empty;
        lines want;
    } cases[] = {
        {",a,,b,", 0, {"a", "b"}},
        {",a,,b,", 1, {"", "a", "", "b", ""}},
        {"abc", 0, {"abc"}},
        {"abc", 1, {"abc"}},
        {",", 0, {}},
        {",", 1, {"", ""}},
        {"", 0, {}},
        {"", 1, {}},
        {"ab,cd", 0, {"ab", "cd"}},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.text);
        owned_array array(free);
        EXPECT_EQ(vc_lstsplode_ex(&array.elements, test.text, ',', test.keep_empty), 1);
        EXPECT_EQ(texts_of(array.elements), test.want);
    }
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(arrays, splode_appends_to_what_is_there) {
    owned_array array(free);
    vc_lstsplode_ex(&array.elements, "a,b", ',', 0);
    vc_lstsplode_ex(&array.elements, "c;d", ';', 0);
    EXPECT_EQ(texts_of(array.elements), (lines{"a", "b", "c", "d"}));
}

TEST_F(arrays, splode_refuses) {
    owned_array array;
    EXPECT_EQ(vc_lstsplode_ex(nullptr, "a", ',', 0), 0);
    EXPECT_EQ(vc_lstsplode_ex(&array.elements, nullptr, ',', 0), 0);
    EXPECT_EQ(vc_lstsplode_ex(&array.elements, "a", '\0', 0), 0);
    EXPECT_EQ(array.elements, nullptr);
    EXPECT_EQ(log.transcript(), lines(3, "E vc_lstsplode_ex: " + einval));
}

TEST_F(arrays, splode_without_memory_keeps_the_pieces_before) {
    const lines no_copy = {"E vc_lstsplode_ex: " + enomem};
    const lines no_room = {"E vc_lstcat: " + enomem,
                           "E vc_lstsplode_ex: Failed to append entry to list"};
    void **array = nullptr;
    int result = -1;
    const unsigned failed = sweep_allocations(
        [&] {
            vc_lstfree(&array, free);
            result = vc_lstsplode_ex(&array, "a,b", ',', 0);
        },
        [&](unsigned n) {
            SCOPED_TRACE(n);
            EXPECT_EQ(result, 0);
            EXPECT_EQ(texts_of(array), n < 3 ? lines{} : lines{"a"});
            EXPECT_EQ(log.transcript(), n % 2 ? no_copy : no_room);
        });
    EXPECT_EQ(failed, 4u) << "a copy and an array, twice";
    EXPECT_EQ(result, 1);
    vc_lstfree(&array, free);
}

TEST_F(arrays, remove) {
    const struct {
        uint32_t index;
        lines want;
    } cases[] = {{0, {"b", "c"}}, {1, {"a", "c"}}, {2, {"a", "b"}}};
    for (const auto &test : cases) {
        owned_array array;
        fill(&array, {a, b, c});
        released = 0;
        EXPECT_EQ(vc_lstremove(array.elements, test.index, count_release), 1);
        EXPECT_EQ(texts_of(array.elements), test.want);
        EXPECT_EQ(array.elements[2], nullptr) << "the terminator";
        EXPECT_EQ(released, 1);
        EXPECT_EQ(vc_lstremove(array.elements, 0, nullptr), 1);
        EXPECT_EQ(vc_lstcount(array.elements), 1u);
        EXPECT_EQ(released, 1);
    }
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(arrays, remove_refuses_an_index_that_is_not_below_the_count) {
    owned_array array;
    fill(&array, {a});
    released = 0;
    EXPECT_EQ(vc_lstremove(array.elements, 1, count_release), 0);
    EXPECT_EQ(vc_lstremove(nullptr, 0, count_release), 0);
    EXPECT_EQ(released, 0);
    EXPECT_EQ(texts_of(array.elements), (lines{"a"}));
    EXPECT_EQ(log.transcript(), lines(2, "E vc_lstremove: " + einval));
}

TEST_F(arrays, count) {
    void *empty[] = {nullptr}, *two[] = {a, b, nullptr};
    EXPECT_EQ(vc_lstcount(static_cast<void **>(nullptr)), 0u);
    EXPECT_EQ(vc_lstcount(empty), 0u);
    EXPECT_EQ(vc_lstcount(two), 2u);
}

TEST_F(arrays, free_releases_every_element) {
    owned_array array;
    fill(&array, {a, b});
    released = 0;
    vc_lstfree(&array.elements, count_release);
    EXPECT_EQ(array.elements, nullptr);
    EXPECT_EQ(released, 2);
    vc_lstfree(&array.elements, count_release);
    EXPECT_EQ(released, 2);
    fill(&array, {a});
    vc_lstfree(&array.elements, nullptr);
    EXPECT_EQ(array.elements, nullptr);
    EXPECT_EQ(log.transcript(), lines{});
    vc_lstfree(static_cast<void ***>(nullptr), nullptr);
    EXPECT_EQ(log.transcript(), (lines{"E vc_lstfree: " + einval}));
}

TEST_F(arrays, of_strings) {
    char **names = nullptr;
    EXPECT_NE(vc_lstcat(&names, heap_text("one")), nullptr);
    EXPECT_NE(vc_lstcat(&names, heap_text("two")), nullptr);
    EXPECT_EQ(vc_lstcount(names), 2u);
    EXPECT_STREQ(names[1], "two");
    vc_lstfree(&names, free);
    EXPECT_EQ(names, nullptr);
}

// The same on std::string.
TEST_F(arrays, sploding_like_strings) {
    std::mt19937 random(17);
    for (int round = 0; round < 5000; ++round) {
        std::string text(random() % 12, ' ');
        for (char &letter : text) {
            letter = "ab,"[random() % 3];
        }
        SCOPED_TRACE(text);
        lines all, filled;
        for (size_t from = 0; !text.empty() && from <= text.size();) {
            const size_t end = std::min(text.find(',', from), text.size());
            all.push_back(text.substr(from, end - from));
            from = end + 1;
        }
        std::copy_if(all.begin(), all.end(), std::back_inserter(filled),
                     [](const std::string &piece) { return !piece.empty(); });
        owned_array with(free), without(free);
        ASSERT_EQ(vc_lstsplode_ex(&with.elements, text.c_str(), ',', 1), 1);
        ASSERT_EQ(texts_of(with.elements), all);
        ASSERT_EQ(vc_lstsplode_ex(&without.elements, text.c_str(), ',', 0), 1);
        ASSERT_EQ(texts_of(without.elements), filled);
    }
}

// The same on std::vector.
TEST_F(arrays, behave_like_a_vector) {
    std::mt19937 random(3);
    static int values[40];
    owned_array array;
    std::vector<void *> model;
    for (int round = 0; round < 20000; ++round) {
        int *const value = &values[random() % 40];
        switch (random() % 3) {
        case 0:
            ASSERT_NE(vc_lstcat(&array.elements, value), nullptr);
            model.push_back(value);
            break;
        case 1:
            if (!model.empty()) {
                const size_t place = random() % model.size();
                ASSERT_EQ(vc_lstremove(array.elements, static_cast<uint32_t>(place), nullptr), 1);
                model.erase(model.begin() + static_cast<std::ptrdiff_t>(place));
            }
            break;
        default:
            if (array.elements) {
                const auto found = std::find(model.begin(), model.end(), value);
                void **const place = vc_lstfind(array.elements, value, nullptr);
                ASSERT_EQ(place != nullptr, found != model.end());
                if (place) {
                    ASSERT_EQ(place - array.elements, found - model.begin());
                }
            }
        }
        ASSERT_EQ(vc_lstcount(array.elements), model.size());
    }
    EXPECT_EQ(std::vector<void *>(array.elements, array.elements + model.size()), model);
}

} // namespace
} // namespace quillfence::testing
