// What is refused: null arguments, and everything without memory.
#include <cerrno>
#include <functional>
#include <string>

#include "error_text.h"
#include "failing_memory.h"
#include "map_fixture.h"

namespace quillfence::testing {
namespace {

// --- Arguments ---

TEST_F(vc_hashmap_test, null_arguments_are_refused) {
    const owned_map map;
    vc_hashmap *const none = nullptr;
    int64_t number;
    const struct {
        const char *operation;
        std::function<int64_t()> call;
    } cases[] = {
        {"vc_map_count", [&] { return vc_map_count(none); }},
        {"vc_map_memory_size", [&] { return static_cast<int64_t>(vc_map_memory_size(none)); }},
        {"vc_map_clear", [&] { return vc_map_clear(none); }},
        {"vc_map_destroy", [&] { return vc_map_destroy(none); }},
        {"vc_map_hash", [&] { return vc_map_hash(nullptr); }},
        {"vc_map_store_ex", [&] { return vc_map_store_ex(none, "a", nullptr, 0, 0, nullptr); }},
        {"vc_map_store_ex", [&] { return vc_map_store_ex(map, nullptr, nullptr, 0, 0, nullptr); }},
        {"vc_map_store_int64", [&] { return vc_map_store_int64(none, "a", 1); }},
        {"vc_map_store_bool", [&] { return vc_map_store_bool(map, nullptr, true); }},
        {"vc_map_fetch", [&] { return vc_map_fetch(none, "a", nullptr); }},
        {"vc_map_fetch", [&] { return vc_map_fetch(map, nullptr, nullptr); }},
        {"vc_map_fetch_int64", [&] { return vc_map_fetch_int64(none, "a", &number); }},
        {"vc_map_fetch_int64", [&] { return vc_map_fetch_int64(map, nullptr, &number); }},
        {"vc_map_fetch_int64", [&] { return vc_map_fetch_int64(map, "a", nullptr); }},
        {"vc_map_fetch_bool", [&] { return vc_map_fetch_bool(map, "a", nullptr); }},
        {"vc_map_update_ex", [&] { return vc_map_update_ex(none, "a", nullptr, 0, 0, nullptr); }},
        {"vc_map_update_ex",
         [&] { return vc_map_update_ex(map, nullptr, nullptr, 0, 0, nullptr); }},
        {"vc_map_update_float", [&] { return vc_map_update_float(map, nullptr, 1); }},
        {"vc_map_remove", [&] { return vc_map_remove(none, "a"); }},
        {"vc_map_remove", [&] { return vc_map_remove(map, nullptr); }},
        {"vc_map_rename", [&] { return vc_map_rename(none, "a", "b"); }},
        {"vc_map_rename", [&] { return vc_map_rename(map, nullptr, "b"); }},
        {"vc_map_rename", [&] { return vc_map_rename(map, "a", nullptr); }},
        {"vc_map_rehash", [&] { return vc_map_rehash(none); }},
        {"vc_map_find", [&] { return vc_map_find(none, "a", any_match, nullptr); }},
        {"vc_map_copy_ex", [&] { return vc_map_copy_ex(none, 0, 0) != nullptr; }},
        {"vc_map_shrink", [&] { return vc_map_shrink(none) != nullptr; }},
        {"vc_map_sort", [&] { return vc_map_sort(none, any_order, 1); }},
        {"vc_map_sort", [&] { return vc_map_sort(map, nullptr, 1); }},
        {"vc_map_get_first_entry", [&] { return vc_map_get_first_entry(none, nullptr, nullptr); }},
        {"vc_map_get_last_entry", [&] { return vc_map_get_last_entry(none, nullptr, nullptr); }},
        {"vc_map_index", [&] { return vc_map_index(none, 0, nullptr, nullptr); }},
        {"vc_map_iterator_start_ex", [&] { return vc_map_iterator_start_ex(none, 0) != nullptr; }},
        {"vc_map_iterator_next", [] { return vc_map_iterator_next(nullptr, nullptr, nullptr); }},
        {"vc_map_iterator_prev", [] { return vc_map_iterator_prev(nullptr, nullptr, nullptr); }},
        {"vc_map_iterator_peek_next",
         [] { return vc_map_iterator_peek_next(nullptr, nullptr, nullptr); }},
        {"vc_map_iterator_peek_prev",
         [] { return vc_map_iterator_peek_prev(nullptr, nullptr, nullptr); }},
        {"vc_map_iterator_cur", [] { return vc_map_iterator_cur(nullptr, nullptr, nullptr); }},
    };
    for (const auto &test : cases) {
        EXPECT_EQ(test.call(), 0) << test.operation;
        EXPECT_EQ(log.errors(), lines{std::string(test.operation) + ": " + text_of(EINVAL)});
    }
    vc_map_iterator_free(nullptr);
}

TEST_F(vc_hashmap_test, lines_carry_the_module_name) {
    EXPECT_EQ(vc_map_count(nullptr), 0u);
    EXPECT_EQ(vc_map_index(nullptr, 0, nullptr, nullptr), 0);
    for (const auto &line : log.take()) {
        EXPECT_EQ(line.source, "vc_hashmap");
    }
}

// --- Without memory ---

// Runs an operation with its n-th allocation failing.
template <class Operation>
auto without_allocation(unsigned n, Operation operation) {
    const failing_allocation failing(n);
    return operation();
}

TEST_F(vc_hashmap_test, storing_without_memory) {
    char text[] = "text";
    const std::string no_entry =
        "Cannot create new key-value pair when attemping to store data in map";
    for (unsigned n = 1; n <= 5; ++n) {
        SCOPED_TRACE(n);
        const owned_map map; // entry, key, copy of the value; the first slots; all good
        const int stored = without_allocation(
            n, [&] { return vc_map_store_ex(map, "a", text, sizeof text, 1, nullptr); });
        EXPECT_EQ(stored, n > 4);
        EXPECT_EQ(vc_map_count(map), n > 4);
        const lines no_room = {"vc_map_store_ex: Failed to initialize new map"};
        EXPECT_EQ(log.errors(), n > 4    ? lines{}
                                : n == 4 ? no_room
                                         : lines{"vc_map_store_ex: " + no_entry});
    }
    const owned_map map(1, 1);
    EXPECT_EQ(without_allocation(1, [&] { return vc_map_store_bool(map, "a", true); }), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_store_bool: " + no_entry});
}

TEST_F(vc_hashmap_test, growing_without_memory) {
    const owned_map map(1, 1);
    store_all(map, {"a"});
    for (unsigned n = 3; n <= 4; ++n) { // behind the entry and its key: the table and its slots
        EXPECT_EQ(without_allocation(n, [&] { return vc_map_store_int32(map, "d", 2); }), 0);
        EXPECT_EQ(log.errors(), (lines{n == 3 ? "vc_map_create: " + text_of(ENOMEM)
                                              : "vc_map_create: Failed to initialize buckets of "
                                                "new map",
                                       "vc_map_store_int32: Failed to rehash map.?"}));
    }
    EXPECT_EQ(order_of(map), "a");
    EXPECT_EQ(map->num_buckets, 1u);
}

TEST_F(vc_hashmap_test, walking_and_copying_without_memory) {
    const owned_map map(1, 2);
    store_all(map, {"a", "d"});
    const std::string no_iterator = "vc_map_iterator_start_ex: " + text_of(ENOMEM);
    const char *key = nullptr;
    EXPECT_EQ(without_allocation(1, [&] { return vc_map_index(map, 0, &key, nullptr); }), 0);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(log.errors(), (lines{no_iterator, "vc_map_index: Failed to create map iterator"}));
    const struct {
        unsigned allocation;
        lines want;
    } cases[] = {
        {1,
         {"vc_map_create: " + text_of(ENOMEM),
          "vc_map_copy_ex: Failed to create empty map for copying"}},
        {2,
         {"vc_map_create: Failed to initialize buckets of new map",
          "vc_map_copy_ex: Failed to create empty map for copying"}},
        {3, {no_iterator, "vc_map_copy_ex: Failed to create map iterator"}},
        {6, // behind the first entry and its key
         {"vc_map_store_ex: Cannot create new key-value pair when attemping to store data in map",
          "vc_map_copy_ex: Failed to copy map element [key = d]"}},
    };
    for (const auto &test : cases) {
        EXPECT_EQ(without_allocation(test.allocation, [&] { return vc_map_copy_ex(map, 0, 0); }),
                  nullptr);
        EXPECT_EQ(log.errors(), test.want) << "allocation " << test.allocation;
    }
}

} // namespace
} // namespace quillfence::testing
