// Insertion order and walks, and maps that have none.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "error_text.h"
#include "map_fixture.h"

namespace quillfence::testing {
namespace {

// --- Order ---

int by_text(const void *a, const void *b) {
    return std::strcmp(*static_cast<char *const *>(a), *static_cast<char *const *>(b));
}

int by_tens(const void *a, const void *b) {
    const auto tens = [](const void *value) { return *static_cast<const uint64_t *>(value) / 10; };
    return tens(a) > tens(b) ? 1 : tens(a) < tens(b) ? -1 : 0;
}

int second_always(const void *, const void *) {
    return 1;
}

int first_always(const void *, const void *) {
    return -1;
}

TEST_F(vc_hashmap_test, sorting) {
    const owned_map map;
    const struct {
        const char *key;
        uint64_t value;
    } entries[] = {{"d", 25}, {"a", 11}, {"e", 20}, {"c", 5}, {"b", 13}};
    for (const auto &entry : entries) {
        EXPECT_EQ(vc_map_store_uint64(map, entry.key, entry.value), 1);
    }
    EXPECT_EQ(vc_map_sort(map, any_order, 1), 1);
    EXPECT_EQ(order_of(map), "d a e c b");
    EXPECT_EQ(vc_map_sort(map, first_always, 1), 1);
    EXPECT_EQ(order_of(map), "d a e c b");
    EXPECT_EQ(vc_map_sort(map, by_tens, 0), 1); // stable
    EXPECT_EQ(order_of(map), "c a b d e");
    EXPECT_EQ(vc_map_sort(map, by_text, 1), 1);
    EXPECT_EQ(order_of(map), "a b c d e");
    EXPECT_EQ(vc_map_sort(map, second_always, 1), 1);
    EXPECT_EQ(order_of(map), "e d c b a");
    const char *key = nullptr;
    EXPECT_EQ(vc_map_get_last_entry(map, &key, nullptr), 1);
    EXPECT_STREQ(key, "a");
}

TEST_F(vc_hashmap_test, the_ends_of_the_order) {
    const owned_map map;
    const char *key = nullptr;
    void *value = nullptr;
    EXPECT_EQ(vc_map_get_first_entry(map, &key, &value), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_get_first_entry: " + text_of(EINVAL)});
    EXPECT_EQ(vc_map_get_last_entry(map, &key, &value), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_get_last_entry: " + text_of(EINVAL)});
    store_all(map, {"a", "b", "c"});
    EXPECT_EQ(vc_map_get_first_entry(map, &key, &value), 1);
    EXPECT_STREQ(key, "a");
    EXPECT_EQ(reinterpret_cast<uintptr_t>(value), 1u);
    EXPECT_EQ(vc_map_get_last_entry(map, &key, &value), 1);
    EXPECT_STREQ(key, "c");
    EXPECT_EQ(reinterpret_cast<uintptr_t>(value), 3u);
    EXPECT_EQ(vc_map_get_first_entry(map, nullptr, nullptr), 1);
    EXPECT_EQ(vc_map_get_last_entry(map, nullptr, nullptr), 1);
}

TEST_F(vc_hashmap_test, positions) {
    const owned_map map;
    const std::vector<const char *> keys = {"a", "b", "c", "d", "e"};
    store_all(map, keys);
    const char *key = nullptr;
    void *value = nullptr;
    for (uint32_t i = 0; i < 5; ++i) {
        EXPECT_EQ(vc_map_index(map, i, &key, &value), 1);
        EXPECT_STREQ(key, keys[i]);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(value), i + 1);
    }
    EXPECT_EQ(vc_map_index(map, 2, nullptr, nullptr), 1);
    EXPECT_EQ(vc_map_index(map, 5, &key, &value), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_index: Failed to iterate to requested index"});
    EXPECT_EQ(vc_map_index(map, 6, &key, &value), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_index: " + text_of(EINVAL)});
    const owned_map empty;
    EXPECT_EQ(vc_map_index(empty, 0, &key, &value), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_index: Failed to iterate to requested index"});
}

// A walk that answers with keys, "-" standing for 0.
class walk {
  public:
    walk(const vc_hashmap *map, int direction)
        : iterator_(vc_map_iterator_start_ex(map, direction)) {}
    ~walk() {
        std::free(iterator_);
    }
    walk(const walk &) = delete;
    walk &operator=(const walk &) = delete;
    // One answer a letter: n, p for next and prev, N, P for the peeks, c for cur.
    std::string ask(const std::string &steps) {
        std::string answers;
        for (const char step : steps) {
            const char *key = "-";
            switch (step) {
            case 'n':
                vc_map_iterator_next(iterator_, &key, nullptr);
                break;
            case 'p':
                vc_map_iterator_prev(iterator_, &key, nullptr);
                break;
            case 'N':
                vc_map_iterator_peek_next(iterator_, &key, nullptr);
                break;
            case 'P':
                vc_map_iterator_peek_prev(iterator_, &key, nullptr);
                break;
            case 'c':
                vc_map_iterator_cur(iterator_, &key, nullptr);
                break;
            }
            answers += key;
        }
        return answers;
    }

  private:
    vc_map_iterator *iterator_;
};

TEST_F(vc_hashmap_test, walking) {
    const owned_map map;
    store_all(map, {"a", "b", "c"});
    const struct {
        const char *name;
        int direction;
        const char *steps;
        const char *want;
    } cases[] = {
        {"fresh", 0, "cNPc", "-ac-"},
        {"forward", 0, "ncnncn", "aabcc-"},
        {"backward", 0, "pcppcp", "ccbaa-"},
        {"there and back", 0, "nnpnnp", "ababcb"},
        {"the end keeps the place", 0, "nnnnnccpp", "abc--ccba"},
        {"peeks do not move", 0, "nNNPcnNPc", "abb-abcab"},
        {"reverse", 1, "cNPncnnn",
         "-ca"
         "ccba-"},
        {"reverse, backward", 1, "pppp", "abc-"},
        {"reverse peeks", 1, "nNPnNP", "cb-bac"},
        {"another direction number", 2, "nnn", "abc"},
    };
    for (const auto &test : cases) {
        EXPECT_EQ(walk(map, test.direction).ask(test.steps), test.want) << test.name;
    }
    const owned_map empty;
    EXPECT_EQ(walk(empty, 0).ask("cNPnpc"), "------");
    const owned_map single;
    store_all(single, {"x"});
    EXPECT_EQ(walk(single, 0).ask("nnppc"), "x---x");
}

TEST_F(vc_hashmap_test, a_walk_gives_values_too) {
    const owned_map map;
    store_all(map, {"a", "b"});
    vc_map_iterator *iterator = vc_map_iterator_start_ex(map, 0);
    void *value = nullptr;
    EXPECT_EQ(vc_map_iterator_next(iterator, nullptr, &value), 1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(value), 1u);
    EXPECT_EQ(vc_map_iterator_peek_next(iterator, nullptr, &value), 1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(value), 2u);
    EXPECT_EQ(vc_map_iterator_cur(iterator, nullptr, nullptr), 1);
    vc_map_iterator_free(iterator);
}

TEST_F(vc_hashmap_test, the_entry_that_a_walk_stands_on_may_be_removed) {
    const owned_map map;
    store_all(map, {"a", "b", "c", "d"});
    vc_map_iterator *iterator = vc_map_iterator_start_ex(map, 0);
    const char *key = nullptr;
    while (vc_map_iterator_next(iterator, &key, nullptr)) {
        if (*key == 'a' || *key == 'c') {
            EXPECT_EQ(vc_map_remove(map, key), 1);
        }
    }
    vc_map_iterator_free(iterator);
    EXPECT_EQ(order_of(map), "b d");
}

// --- Static maps ---

// A constant map as generated source would define it: 3 x 2, "a" and "b" in slots 0 and 1 of
// bucket 0, "d" in bucket 1.
char value_a[] = "A";
char value_b[] = "B";
char value_d[] = "D";
hash_pair_t static_pairs[] = {
    {.flags = 0,
     .hash = 0x115EA782,
     .key = const_cast<char *>("a"),
     .value = value_a,
     .size = 2,
     .freefn = nullptr,
     .prev = nullptr,
     .next = nullptr},
    {.flags = 0,
     .hash = 0x70C1A0E1,
     .key = const_cast<char *>("b"),
     .value = value_b,
     .size = 2,
     .freefn = nullptr,
     .prev = nullptr,
     .next = nullptr},
    {.flags = 0,
     .hash = 0x030FE761,
     .key = const_cast<char *>("d"),
     .value = value_d,
     .size = 2,
     .freefn = nullptr,
     .prev = nullptr,
     .next = nullptr},
};
const hash_pair_t *const static_slots[] = {&static_pairs[0], &static_pairs[1], nullptr,
                                           &static_pairs[2], nullptr,          nullptr};
vc_hashmap static_map = {
    .flags = MAP_FLAG_STATIC,
    .num_buckets = 3,
    .bucket_size = 2,
    .map_size = 6,
    .num_pairs = 3,
    .const_pairs = static_slots,
    .first = nullptr,
    .last = nullptr,
};

TEST_F(vc_hashmap_test, a_static_map_refuses_every_change) {
    const struct {
        std::function<int()> call;
        const char *want;
    } cases[] = {
        {[] { return vc_map_clear(&static_map); },
         "vc_map_clear: Attempting to clear a static hashmap!"},
        {[] { return vc_map_destroy(&static_map); },
         "vc_map_destroy: Attempting to destroy a static hashmap!"},
        {[] { return vc_map_rehash(&static_map); },
         "vc_map_rehash: Attempting to rehash a static hashmap!"},
        {[] { return vc_map_store_ex(&static_map, "x", nullptr, 0, 0, nullptr); },
         "vc_map_store_ex: Attempting to store entries in a static hashmap!"},
        {[] { return vc_map_store_bool(&static_map, "x", true); },
         "vc_map_store_bool: Attempting to store entries in a static hashmap!"},
        {[] { return vc_map_update_ex(&static_map, "a", nullptr, 0, 0, nullptr); },
         "vc_map_update_ex: Attempting to update entries in a static hashmap!"},
        {[] { return vc_map_update_double(&static_map, "a", 1); },
         "vc_map_update_double: Attempting to update entries in a static hashmap!"},
        {[] { return vc_map_remove(&static_map, "a"); },
         "vc_map_remove: Attempting to remove entries from a static hashmap!"},
        {[] { return vc_map_rename(&static_map, "a", "x"); },
         "vc_map_rename: Attempting to rename entries in a static hashmap!"},
        {[] { return vc_map_shrink(&static_map) != nullptr; },
         "vc_map_shrink: Attempting to shrink a static hashmap!"},
    };
    for (const auto &test : cases) {
        EXPECT_EQ(test.call(), 0);
        EXPECT_EQ(log.errors(), lines{test.want});
    }
    EXPECT_EQ(vc_map_sort(&static_map, by_text, 1), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_sort: " + text_of(EINVAL)});
    EXPECT_EQ(order_of(&static_map), "a b d");
}

TEST_F(vc_hashmap_test, a_static_map_is_read_in_slot_order) {
    void *value = nullptr;
    const char *key = nullptr;
    EXPECT_EQ(vc_map_count(&static_map), 3u);
    EXPECT_EQ(vc_map_fetch(&static_map, "d", &value), 1);
    EXPECT_EQ(value, value_d);
    EXPECT_EQ(vc_map_fetch(&static_map, "x", &value), 0);
    EXPECT_EQ(walk(&static_map, 0).ask("cPNnnnnNPc"), "-daabd--bd");
    EXPECT_EQ(walk(&static_map, 1).ask("nnnn"), "dba-");
    EXPECT_EQ(walk(&static_map, 0).ask("pppp"), "dba-");
    EXPECT_EQ(vc_map_get_first_entry(&static_map, &key, nullptr), 1);
    EXPECT_STREQ(key, "a");
    EXPECT_EQ(vc_map_get_last_entry(&static_map, &key, nullptr), 1);
    EXPECT_STREQ(key, "d");
    EXPECT_EQ(vc_map_index(&static_map, 1, &key, nullptr), 1);
    EXPECT_STREQ(key, "b");
    EXPECT_EQ(vc_map_find(&static_map, "B", nullptr, &key), 1);
    EXPECT_STREQ(key, "b");
    EXPECT_EQ(vc_map_memory_size(&static_map), 48u + 6 * 8 + 3 * (56 + 2 + 2));
}

TEST_F(vc_hashmap_test, a_copy_of_a_static_map_is_an_ordinary_map_that_shares_its_values) {
    const owned_map copy(vc_map_copy_ex(&static_map, 0, 0));
    EXPECT_EQ(copy->flags, 0u);
    EXPECT_EQ(order_of(copy), "a b d");
    void *value = nullptr;
    EXPECT_EQ(vc_map_fetch(copy, "a", &value), 1);
    EXPECT_EQ(value, value_a);
    EXPECT_EQ(vc_map_remove(copy, "a"), 1);
}

} // namespace
} // namespace quillfence::testing
