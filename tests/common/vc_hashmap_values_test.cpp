// Storing, fetching and renaming.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "error_text.h"
#include "map_fixture.h"

namespace quillfence::testing {
namespace {

// --- Values ---

TEST_F(vc_hashmap_values, a_key_is_stored_once) {
    const owned_map map;
    EXPECT_EQ(vc_map_store_int32(map, "a", 1), 1);
    EXPECT_EQ(vc_map_store_int32(map, "a", 2), 0);
    int number = 0;
    EXPECT_EQ(vc_map_store_ex(map, "a", &number, 4, 0, counting_free), 0);
    EXPECT_EQ(freed_count, 0); // still the caller's
    EXPECT_EQ(vc_map_store_ex(map, "a", &number, 4, 1, nullptr), 0);
    int32_t value = 0;
    EXPECT_EQ(vc_map_fetch_int32(map, "a", &value), 1);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(vc_map_count(map), 1u);
}

TEST_F(vc_hashmap_values, a_key_behind_a_free_slot_is_still_found) {
    const owned_map map(1, 3);
    store_all(map, {"a", "b", "c"});
    EXPECT_EQ(vc_map_remove(map, "a"), 1);
    EXPECT_EQ(vc_map_store_int32(map, "c", 9), 0);
    EXPECT_EQ(vc_map_count(map), 2u);
}

TEST_F(vc_hashmap_values, keys_are_copied_and_case_sensitive) {
    const owned_map map;
    char key[] = "name";
    EXPECT_EQ(vc_map_store_int32(map, key, 1), 1);
    EXPECT_EQ(vc_map_store_int32(map, "Name", 2), 1);
    key[0] = 'g';
    EXPECT_EQ(order_of(map), "name Name");
    EXPECT_EQ(vc_map_fetch(map, "NAME", nullptr), 0);
}

TEST_F(vc_hashmap_values, a_copied_value_is_a_copy) {
    const owned_map map;
    char text[] = "text";
    EXPECT_EQ(vc_map_store_ex(map, "a", text, 5, 1, nullptr), 1);
    EXPECT_EQ(vc_map_store_ex(map, "b", text, 5, 1, std::free), 1);
    EXPECT_EQ(vc_map_store_ex(map, "c", text, 0, 1, nullptr), 1);
    text[0] = 'n';
    for (const char *key : {"a", "b"}) {
        void *value = nullptr;
        EXPECT_EQ(vc_map_fetch(map, key, &value), 1);
        EXPECT_STREQ(static_cast<char *>(value), "text");
    }
}

TEST_F(vc_hashmap_values, a_borrowed_value_is_the_pointer_itself) {
    const owned_map map;
    int number = 1;
    void *value = nullptr;
    EXPECT_EQ(vc_map_store_ex(map, "a", &number, sizeof number, 0, nullptr), 1);
    EXPECT_EQ(vc_map_fetch(map, "a", &value), 1);
    EXPECT_EQ(value, &number);
    EXPECT_EQ(vc_map_fetch(map, "a", nullptr), 1);
}

TEST_F(vc_hashmap_values, a_null_value_stays_null_also_with_copy) {
    const owned_map map;
    void *value = &value;
    EXPECT_EQ(vc_map_store_ex(map, "a", nullptr, 10, 1, nullptr), 1);
    EXPECT_EQ(vc_map_fetch(map, "a", &value), 1);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(vc_map_update_ex(map, "a", nullptr, 10, 1, nullptr), 1);
}

TEST_F(vc_hashmap_values, copy_goes_with_no_other_release_than_free) {
    const owned_map map;
    const std::string line =
        "Cannot request 'copy' and specify a freefn that isn't 'void free(void *)'";
    char text[] = "text";
    EXPECT_EQ(vc_map_store_ex(map, "a", text, 5, 1, counting_free), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_store_ex: " + line});
    store_all(map, {"a"});
    EXPECT_EQ(vc_map_update_ex(map, "a", text, 5, 1, counting_free), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_update_ex: " + line});
    int32_t number = 0;
    EXPECT_EQ(vc_map_fetch_int32(map, "a", &number), 1);
    EXPECT_EQ(freed_count, 0);
}

TEST_F(vc_hashmap_values, the_release_function_gets_the_value) {
    int number = 0;
    {
        const owned_map map;
        EXPECT_EQ(vc_map_store_ex(map, "removed", &number, 4, 0, counting_free), 1);
        EXPECT_EQ(vc_map_remove(map, "removed"), 1);
        EXPECT_EQ(freed_count, 1);
        EXPECT_EQ(freed_value, &number);
        EXPECT_EQ(vc_map_store_ex(map, "updated", &number, 4, 0, counting_free), 1);
        EXPECT_EQ(vc_map_update_int32(map, "updated", 1), 1);
        EXPECT_EQ(freed_count, 2);
        EXPECT_EQ(vc_map_store_ex(map, "cleared", &number, 4, 0, counting_free), 1);
        EXPECT_EQ(vc_map_clear(map), 1);
        EXPECT_EQ(freed_count, 3);
        EXPECT_EQ(vc_map_store_ex(map, "destroyed", &number, 4, 0, counting_free), 1);
    }
    EXPECT_EQ(freed_count, 4);
}

TEST_F(vc_hashmap_values, updating_replaces_the_value_in_its_place) {
    const owned_map map;
    store_all(map, {"a", "b", "c"});
    char text[] = "text";
    EXPECT_EQ(vc_map_update_ex(map, "b", text, 5, 1, nullptr), 1);
    text[0] = 'n';
    void *value = nullptr;
    EXPECT_EQ(vc_map_fetch(map, "b", &value), 1);
    EXPECT_STREQ(static_cast<char *>(value), "text");
    EXPECT_EQ(vc_map_update_ex(map, "b", value, 4, 1, nullptr), 1); // from its own old value
    EXPECT_EQ(vc_map_fetch(map, "b", &value), 1);
    EXPECT_EQ(std::memcmp(value, "text", 4), 0);
    EXPECT_EQ(vc_map_update_ex(map, "b", text, 5, 0, counting_free), 1);
    EXPECT_EQ(vc_map_update_ex(map, "b", text, 4, 0, counting_free), 1); // the same pointer again
    EXPECT_EQ(freed_count, 0);
    EXPECT_EQ(vc_map_update_ex(map, "none", text, 5, 0, nullptr), 0);
    EXPECT_EQ(order_of(map), "a b c");
    EXPECT_EQ(vc_map_count(map), 3u);
}

TEST_F(vc_hashmap_values, clearing_keeps_the_table) {
    const owned_map map(7, 2);
    store_all(map, {"a", "b", "c"});
    EXPECT_EQ(vc_map_clear(map), 1);
    EXPECT_EQ(vc_map_count(map), 0u);
    EXPECT_EQ(vc_map_fetch(map, "a", nullptr), 0);
    EXPECT_EQ(order_of(map), "");
    EXPECT_EQ(map->num_buckets, 7u);
    store_all(map, {"c", "a"});
    EXPECT_EQ(order_of(map), "c a");
}

TEST_F(vc_hashmap_values, memory_size) {
    const owned_map map(5, 2);
    EXPECT_EQ(vc_map_memory_size(map), 48u + 80u);
    int number = 0;
    EXPECT_EQ(vc_map_store_int32(map, "abc", 1), 1);
    EXPECT_EQ(vc_map_store_ex(map, "d", &number, 100, 0, nullptr), 1); // not owned, counted too
    EXPECT_EQ(vc_map_memory_size(map), 128u + (56 + 4 + 4) + (56 + 2 + 100));
}

// Stores, fetches, updates and removes one type's values.
template <class Value>
void check_type(vc_hashmap *map, uint64_t width, int (*store)(vc_hashmap *, const char *, Value),
                int (*fetch)(const vc_hashmap *, const char *, Value *),
                int (*update)(vc_hashmap *, const char *, Value), Value one, Value other) {
    SCOPED_TRACE(width);
    Value got = other;
    EXPECT_EQ(fetch(map, "key", &got), 0);
    EXPECT_EQ(update(map, "key", one), 0);
    EXPECT_EQ(store(map, "key", one), 1);
    EXPECT_EQ(map->last->size, width);
    EXPECT_EQ(fetch(map, "key", &got), 1);
    EXPECT_EQ(got, one);
    EXPECT_EQ(update(map, "key", other), 1);
    EXPECT_EQ(map->last->size, width);
    EXPECT_EQ(fetch(map, "key", &got), 1);
    EXPECT_EQ(got, other);
    EXPECT_EQ(vc_map_remove(map, "key"), 1);
}

TEST_F(vc_hashmap_values, every_type_keeps_its_values) {
    const owned_map map;
    check_type<int64_t>(map, 8, vc_map_store_int64, vc_map_fetch_int64, vc_map_update_int64,
                        INT64_MIN, INT64_MAX);
    check_type<uint64_t>(map, 8, vc_map_store_uint64, vc_map_fetch_uint64, vc_map_update_uint64,
                         UINT64_MAX, 1);
    check_type<int32_t>(map, 4, vc_map_store_int32, vc_map_fetch_int32, vc_map_update_int32,
                        INT32_MIN, -1);
    check_type<uint32_t>(map, 4, vc_map_store_uint32, vc_map_fetch_uint32, vc_map_update_uint32,
                         UINT32_MAX, 1);
    check_type<double>(map, 8, vc_map_store_double, vc_map_fetch_double, vc_map_update_double, -0.1,
                       1e300);
    check_type<float>(map, 4, vc_map_store_float, vc_map_fetch_float, vc_map_update_float, 0.5f,
                      -3e38f);
    check_type<bool>(map, 1, vc_map_store_bool, vc_map_fetch_bool, vc_map_update_bool, true, false);
}

TEST_F(vc_hashmap_values, an_inline_value_is_fetched_as_its_bits) {
    const owned_map map;
    EXPECT_EQ(vc_map_store_uint32(map, "a", 0xFFFFFFFE), 1);
    void *value = nullptr;
    EXPECT_EQ(vc_map_fetch(map, "a", &value), 1);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(value), 0xFFFFFFFEu);
    uint64_t wide = 0;
    EXPECT_EQ(vc_map_fetch_uint64(map, "a", &wide), 1);
    EXPECT_EQ(wide, 0xFFFFFFFEu);
}

TEST_F(vc_hashmap_values, a_pointer_is_no_typed_value) {
    const owned_map map;
    char text[] = "text";
    EXPECT_EQ(vc_map_store_ex(map, "a", text, 5, 0, nullptr), 1);
    int64_t number = 7;
    bool truth = true;
    EXPECT_EQ(vc_map_fetch_int64(map, "a", &number), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_fetch_int64: " + text_of(EINVAL)});
    EXPECT_EQ(vc_map_fetch_bool(map, "a", &truth), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_fetch_bool: " + text_of(EINVAL)});
    EXPECT_EQ(number, 7);
}

int ends_alike(const void *wanted, const void *value) {
    const auto *text = static_cast<const char *>(value);
    return text[std::strlen(text) - 1] == *static_cast<const char *>(wanted);
}

TEST_F(vc_hashmap_values, finding_a_value) {
    const owned_map map(5, 2);
    char text[] = "needle";
    char other[] = "haystack";
    EXPECT_EQ(vc_map_store_ex(map, "a", other, 9, 0, nullptr), 1);
    EXPECT_EQ(vc_map_store_ex(map, "b", text, 7, 1, nullptr), 1);
    EXPECT_EQ(vc_map_store_ex(map, "c", other, 0, 0, nullptr), 1);
    EXPECT_EQ(vc_map_store_ex(map, "d", nullptr, 5, 0, nullptr), 1);
    const char *key = "?";
    char wanted[16] = "needle";
    EXPECT_EQ(vc_map_find(map, wanted, nullptr, &key), 1);
    EXPECT_STREQ(key, "b");
    EXPECT_EQ(vc_map_find(map, other, nullptr, &key), 1); // slot order: "c" lies before "a"
    EXPECT_STREQ(key, "c");
    char same_text[16] = "haystack";
    EXPECT_EQ(vc_map_find(map, same_text, nullptr, &key), 1);
    EXPECT_STREQ(key, "a");
    EXPECT_EQ(vc_map_find(map, same_text, nullptr, nullptr), 1);
    char missing[16] = "pin";
    EXPECT_EQ(vc_map_find(map, missing, nullptr, &key), 0);
    EXPECT_EQ(vc_map_find(map, nullptr, nullptr, &key), 0);
}

TEST_F(vc_hashmap_values, finding_by_a_match_function) {
    const owned_map map;
    char one[] = "one";
    char two[] = "two";
    EXPECT_EQ(vc_map_store_ex(map, "a", one, 4, 0, nullptr), 1);
    EXPECT_EQ(vc_map_store_ex(map, "b", two, 4, 0, nullptr), 1);
    const char *key = nullptr;
    EXPECT_EQ(vc_map_find(map, "o", ends_alike, &key), 1);
    EXPECT_STREQ(key, "b");
    EXPECT_EQ(vc_map_find(map, "x", ends_alike, &key), 0);
}

TEST_F(vc_hashmap_values, finding_compares_inline_bytes) {
    const owned_map map;
    EXPECT_EQ(vc_map_store_int32(map, "a", 5), 1);
    EXPECT_EQ(vc_map_store_int64(map, "b", 6), 1);
    const char *key = nullptr;
    int64_t wanted = 6;
    EXPECT_EQ(vc_map_find(map, &wanted, nullptr, &key), 1);
    EXPECT_STREQ(key, "b");
    wanted = 5;
    EXPECT_EQ(vc_map_find(map, &wanted, nullptr, &key), 1);
    EXPECT_STREQ(key, "a");
    wanted = 7;
    EXPECT_EQ(vc_map_find(map, &wanted, nullptr, &key), 0);
}

// --- Renaming ---

TEST_F(vc_hashmap_test, renaming_keeps_value_and_place) {
    const owned_map map;
    store_all(map, {"a", "b", "c"});
    EXPECT_EQ(vc_map_rename(map, "b", "new"), 1);
    EXPECT_EQ(order_of(map), "a new c");
    EXPECT_EQ(vc_map_fetch(map, "b", nullptr), 0);
    int32_t number = 0;
    EXPECT_EQ(vc_map_fetch_int32(map, "new", &number), 1);
    EXPECT_EQ(number, 2);
    EXPECT_EQ(vc_map_count(map), 3u);
}

TEST_F(vc_hashmap_test, renaming_to_a_taken_key_or_from_none_changes_nothing) {
    const owned_map map;
    store_all(map, {"a", "b"});
    EXPECT_EQ(vc_map_rename(map, "none", "new"), 0);
    EXPECT_EQ(vc_map_rename(map, "a", "b"), 0);
    EXPECT_EQ(vc_map_rename(map, "a", "a"), 0);
    EXPECT_EQ(order_of(map), "a b");
}

TEST_F(vc_hashmap_test, renaming_grows_the_table_when_it_must) {
    const auto keys = keys_of_bucket(5, 3, 2);
    const auto elsewhere = keys_of_bucket(5, 1, 1);
    const owned_map map(5, 1);
    store_all(map, {keys[0].c_str(), elsewhere[0].c_str()});
    EXPECT_EQ(vc_map_rename(map, elsewhere[0].c_str(), keys[1].c_str()), 1);
    EXPECT_GE(map->num_buckets, 11u);
    EXPECT_EQ(vc_map_count(map), 2u);
    EXPECT_EQ(order_of(map), keys[0] + " " + keys[1]);
}

TEST_F(vc_hashmap_test, an_entry_that_finds_no_slot_under_its_new_key_stays_in_the_chain) {
    const owned_map map(5, 1);
    store_all(map, {"a", twin});
    EXPECT_EQ(vc_map_rename(map, "a", other_twin), 0);
    EXPECT_EQ(log.errors(), (lines{"vc_map_rename: Failed to rehash map.?",
                                   "vc_map_rename: Failed to store pair with new key [krgc] for "
                                   "map entry rename! Map may be corrupted!"}));
    EXPECT_EQ(vc_map_count(map), 1u);
    EXPECT_EQ(vc_map_fetch(map, "a", nullptr), 0);
    EXPECT_EQ(vc_map_fetch(map, other_twin, nullptr), 0);
    EXPECT_EQ(vc_map_fetch(map, twin, nullptr), 1);
    EXPECT_EQ(order_of(map), "krgc bocs");
    EXPECT_EQ(vc_map_rehash(map), 1);
    const owned_map repaired(vc_map_copy_ex(map, 0, 2));
    EXPECT_EQ(order_of(repaired), "krgc bocs");
    EXPECT_EQ(vc_map_count(repaired), 2u);
    EXPECT_EQ(vc_map_fetch(repaired, other_twin, nullptr), 1);
}

} // namespace
} // namespace quillfence::testing
