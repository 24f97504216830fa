#include "vc_hashmap.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "error_text.h"
#include "failing_memory.h"
#include "owned_map.h"

namespace quillfence {
namespace {

using testing::lines;
using testing::order_of;
using testing::owned_map;
using testing::text_of;

void store_all(vc_hashmap *map, const std::vector<const char *> &keys) {
    int32_t number = 0;
    for (const char *key : keys) {
        EXPECT_EQ(vc_map_store_int32(map, key, ++number), 1) << key;
    }
}

// Keys that fall into one bucket of a table.
std::vector<std::string> keys_of_bucket(uint32_t buckets, uint32_t bucket, size_t count) {
    std::vector<std::string> keys;
    for (int i = 0; keys.size() < count; ++i) {
        const std::string key = "key" + std::to_string(i);
        if (vc_map_hash(key.c_str()) % buckets == bucket) {
            keys.push_back(key);
        }
    }
    return keys;
}

// The same numbers on every run.
class dice {
  public:
    explicit dice(uint32_t seed) : engine_(seed) {}
    uint32_t below(uint32_t limit) {
        return static_cast<uint32_t>(engine_()) % limit;
    }

  private:
    std::mt19937 engine_;
};

class vc_hashmap_test : public testing::logged_test {};

// ---- Hash ----

// The same function written down once more, in 64 bits and by its description.
uint32_t expected_hash(const std::string &text) {
    const auto byte = [&](size_t i) { return uint64_t{static_cast<unsigned char>(text[i])}; };
    const auto pair = [&](size_t i) { return byte(i) + 256 * byte(i + 1); };
    const auto cut = [](uint64_t value) { return value % 4294967296; };
    uint64_t hash = text.size();
    size_t i = 0;
    for (; i + 4 <= text.size(); i += 4) {
        hash = cut(hash + pair(i));
        hash = cut(hash * 65536) ^ cut(pair(i + 2) * 2048) ^ hash;
        hash = cut(hash + hash / 2048);
    }
    switch (text.size() - i) {
    case 1:
        hash = cut(hash + byte(i));
        hash ^= cut(hash * 1024);
        hash = cut(hash + hash / 2);
        break;
    case 2:
        hash = cut(hash + pair(i));
        hash ^= cut(hash * 2048);
        hash = cut(hash + hash / 131072);
        break;
    case 3:
        hash = cut(hash + pair(i));
        hash ^= cut(hash * 65536);
        hash ^= byte(i + 2) * 262144;
        hash = cut(hash + hash / 2048);
        break;
    }
    hash ^= cut(hash * 8);
    hash = cut(hash + hash / 32);
    hash ^= cut(hash * 16);
    hash = cut(hash + hash / 131072);
    hash ^= cut(hash * 33554432);
    return static_cast<uint32_t>(cut(hash + hash / 64));
}

TEST_F(vc_hashmap_test, hashes_worked_out_by_hand) {
    // 1 + 97 = 62h, ^ << 10 = 18862h, + >> 1 = 24C93h; then the six closing steps:
    // 10280Bh, 10A94Bh, 11A3DFBh, 11A3E88h, 111A3E88h, 115EA782h.
    EXPECT_EQ(vc_map_hash("a"), 0x115EA782u);
    // 1 + 128 = 81h, 20481h, 306C1h; 1B30C9h, 1C0A4Fh, 1DCAEBFh, 1DCAFADh, 5BDCAFADh, 5D4C226Bh.
    EXPECT_EQ(vc_map_hash("\x80"), 0x5D4C226Bu);
}

TEST_F(vc_hashmap_test, hashes_of_every_short_length) {
    for (const std::string text :
         {"x", "xy", "xyz", "wxyz", "vwxyz", "uvwxyz", "tuvwxyz", "\xFF", "\xFF\xFE",
          "\xFF\xFE\xFD", "ab\x80", "\x80\x81\x82\x83", "abcd\x80", "abcd\x80\xFF", "abcdef\x80"}) {
        EXPECT_EQ(vc_map_hash(text.c_str()), expected_hash(text)) << text;
    }
    dice random(1);
    for (int i = 0; i < 2000; ++i) {
        std::string text(1 + random.below(40), ' ');
        for (char &c : text) {
            c = static_cast<char>(1 + random.below(255));
        }
        ASSERT_EQ(vc_map_hash(text.c_str()), expected_hash(text));
    }
}

TEST_F(vc_hashmap_test, the_empty_key_hashes_to_0_after_a_line) {
    EXPECT_EQ(vc_map_hash(""), 0u);
    EXPECT_EQ(log.errors(), lines{"__super_fast_hash: " + text_of(EINVAL)});
    const owned_map map;
    EXPECT_EQ(vc_map_store_int32(map, "", 5), 1);
    int32_t value = 0;
    EXPECT_EQ(vc_map_fetch_int32(map, "", &value), 1);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(log.errors().size(), 2u);
}

// ---- Arguments ----

int any_match(const void *, const void *) {
    return 1;
}

int any_order(const void *, const void *) {
    return 0;
}

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

// ---- Creating, growing ----

TEST_F(vc_hashmap_test, a_map_that_is_too_big_is_not_made) {
    EXPECT_EQ(vc_map_create(65536, 65536), nullptr);
    EXPECT_EQ(log.errors(), lines{"vc_map_create: Cannot create a map that big! (65536 buckets * "
                                  "65536 bucket size > UINT32_MAX)"});
}

#ifndef __SANITIZE_ADDRESS__ // whose bookkeeping for 32 GiB takes gigabytes
TEST_F(vc_hashmap_test, the_largest_product_passes_the_check) {
    vc_hashmap *map = vc_map_create(65535, 65537);
    if (map) {
        EXPECT_EQ(map->map_size, 4294967295u);
        EXPECT_EQ(vc_map_destroy(map), 1);
    } else {
        EXPECT_EQ(log.errors(), lines{"vc_map_create: Failed to initialize buckets of new map"});
    }
}
#endif

TEST_F(vc_hashmap_test, slots_without_buckets_are_refused) {
    EXPECT_EQ(vc_map_create(0, 13), nullptr);
    EXPECT_EQ(log.errors(), lines{"vc_map_create: Failed to initialize buckets of new map"});
}

TEST_F(vc_hashmap_test, a_map_without_slots_gets_5_by_13_at_its_first_store) {
    for (const uint32_t buckets : {0u, 7u, 4000000000u}) {
        const owned_map map(buckets, 0);
        EXPECT_EQ(map->pairs, nullptr);
        EXPECT_EQ(map->map_size, 0u);
        EXPECT_EQ(vc_map_store_int32(map, "a", 1), 1);
        EXPECT_EQ(map->num_buckets, 5u);
        EXPECT_EQ(map->bucket_size, 13u);
        EXPECT_EQ(map->map_size, 65u);
    }
}

TEST_F(vc_hashmap_test, a_map_without_slots_answers_0) {
    const owned_map map;
    const char *key = nullptr;
    int32_t number = 7;
    EXPECT_EQ(vc_map_count(map), 0u);
    EXPECT_EQ(vc_map_fetch(map, "a", nullptr), 0);
    EXPECT_EQ(vc_map_fetch_int32(map, "a", &number), 0);
    EXPECT_EQ(number, 7);
    EXPECT_EQ(vc_map_update_int32(map, "a", 1), 0);
    EXPECT_EQ(vc_map_remove(map, "a"), 0);
    EXPECT_EQ(vc_map_rename(map, "a", "b"), 0);
    EXPECT_EQ(vc_map_find(map, "a", any_match, &key), 0);
    EXPECT_EQ(vc_map_sort(map, any_order, 1), 1);
    EXPECT_EQ(vc_map_clear(map), 1);
    EXPECT_EQ(vc_map_memory_size(map), 48u);
    EXPECT_EQ(order_of(map), "");
    EXPECT_EQ(order_of(owned_map(vc_map_copy_ex(map, 0, 0))), "");
    EXPECT_EQ(order_of(owned_map(vc_map_shrink(map))), "");
}

TEST_F(vc_hashmap_test, a_full_bucket_makes_the_table_grow_to_11) {
    const owned_map map;
    const auto keys = keys_of_bucket(5, 3, 14);
    for (size_t i = 0; i < 13; ++i) {
        EXPECT_EQ(vc_map_store_int32(map, keys[i].c_str(), 1), 1);
    }
    EXPECT_EQ(map->num_buckets, 5u);
    EXPECT_EQ(vc_map_store_int32(map, keys[13].c_str(), 1), 1);
    EXPECT_EQ(map->num_buckets, 11u);
    EXPECT_EQ(map->bucket_size, 13u);
    EXPECT_EQ(map->map_size, 143u);
    for (const auto &key : keys) {
        EXPECT_EQ(vc_map_fetch(map, key.c_str(), nullptr), 1) << key;
    }
}

TEST_F(vc_hashmap_test, the_table_grows_through_the_primes) {
    const owned_map map(1, 2);
    for (const uint32_t want : {5u, 11u, 23u, 47u, 97u, 199u, 409u, 823u, 1741u, 3469u, 6949u,
                                14033u, 28411u, 57557u, 116731u}) {
        EXPECT_EQ(vc_map_rehash(map), 1);
        EXPECT_EQ(map->num_buckets, want);
        EXPECT_EQ(map->map_size, want * 2);
    }
    const owned_map between(100, 1);
    EXPECT_EQ(vc_map_rehash(between), 1);
    EXPECT_EQ(between->num_buckets, 199u);
}

TEST_F(vc_hashmap_test, growing_while_growing_grows_again) {
    // Buckets of "a", "c", "abc": 3, 1, 3 of 5; 0, 0, 3 of 11.
    const owned_map map(5, 1);
    store_all(map, {"a", "c"});
    EXPECT_EQ(map->num_buckets, 5u);
    EXPECT_EQ(vc_map_store_int32(map, "abc", 3), 1);
    EXPECT_EQ(map->num_buckets, 23u);
    EXPECT_EQ(order_of(map), "a c abc");
    EXPECT_EQ(vc_map_count(map), 3u);
    for (const char *key : {"a", "c", "abc"}) {
        EXPECT_EQ(vc_map_fetch(map, key, nullptr), 1) << key;
    }
}

TEST_F(vc_hashmap_test, no_growing_beyond_the_last_prime) {
    const owned_map largest(4294967291u, 0);
    EXPECT_EQ(vc_map_rehash(largest), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_rehash: Map is at max size: 4294967291 buckets."});
    const owned_map last(2364114217u, 0);
    EXPECT_EQ(vc_map_rehash(last), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_rehash: Cannot determine new table size."});
}

TEST_F(vc_hashmap_test, growing_beyond_32_bits_of_slots_fails) {
    const owned_map map(2, 1);
    map->bucket_size = 1000000000; // as if it had that many
    EXPECT_EQ(vc_map_rehash(map), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_create: Cannot create a map that big! (5 buckets * "
                                  "1000000000 bucket size > UINT32_MAX)"});
    map->bucket_size = 1;
}

// Both keys hash to 90D5328Bh, so that no table parts them.
constexpr char twin[] = "bocs";
constexpr char other_twin[] = "krgc";

TEST_F(vc_hashmap_test, keys_of_one_hash_share_a_bucket_or_are_refused) {
    ASSERT_EQ(vc_map_hash(twin), 0x90D5328Bu);
    ASSERT_EQ(vc_map_hash(other_twin), 0x90D5328Bu);
    const owned_map roomy(1, 2);
    store_all(roomy, {twin, other_twin});
    int32_t number = 0;
    EXPECT_EQ(vc_map_fetch_int32(roomy, other_twin, &number), 1);
    EXPECT_EQ(number, 2);

    const owned_map narrow(5, 1);
    EXPECT_EQ(vc_map_store_int32(narrow, twin, 1), 1);
    EXPECT_EQ(vc_map_store_int32(narrow, other_twin, 2), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_store_int32: Failed to rehash map.?"});
    EXPECT_EQ(vc_map_count(narrow), 1u);
    EXPECT_EQ(narrow->num_buckets, 5u); // growing would not have helped
}

TEST_F(vc_hashmap_test, a_damaged_table_does_not_grow) {
    const owned_map map(5, 2);
    store_all(map, {"a"});
    ++map->num_pairs;
    EXPECT_EQ(vc_map_rehash(map), 0);
    EXPECT_EQ(log.errors(), lines{"vc_map_rehash: Maps have different counts after "
                                  "redistribution: old:2 != new:1.?"});
    hash_pair_t **slot = std::find(map->pairs, map->pairs + 10, map->first);
    slot[1] = slot[0]; // the same entry twice in its bucket
    EXPECT_EQ(vc_map_rehash(map), 0);
    EXPECT_EQ(log.errors(), (lines{"vc_map_rehash: Failed to store pair",
                                   "vc_map_rehash: Failed to redistribute map"}));
    EXPECT_EQ(map->num_buckets, 5u);
    slot[1] = nullptr;
    --map->num_pairs;
    EXPECT_EQ(vc_map_rehash(map), 1);
}

// ---- Values ----

int freed_count;
void *freed_value;

void counting_free(void *value) {
    ++freed_count;
    freed_value = value;
}

class vc_hashmap_values : public vc_hashmap_test {
  protected:
    vc_hashmap_values() {
        freed_count = 0;
        freed_value = nullptr;
    }
};

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

// ---- Renaming ----

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

// ---- Copying, shrinking ----

TEST_F(vc_hashmap_values, copying_copies_what_the_source_owns_and_shares_the_rest) {
    const owned_map map(5, 3);
    char text[] = "text";
    EXPECT_EQ(vc_map_store_ex(map, "owned", text, 5, 1, nullptr), 1);
    EXPECT_EQ(vc_map_store_ex(map, "freed", ::strdup("heap"), 5, 0, std::free), 1);
    EXPECT_EQ(vc_map_store_ex(map, "borrowed", text, 5, 0, nullptr), 1);
    EXPECT_EQ(vc_map_store_int32(map, "inline", -7), 1);
    const owned_map copy(vc_map_copy_ex(map, 0, 0));
    EXPECT_EQ(order_of(copy), "owned freed borrowed inline");
    EXPECT_EQ(copy->num_buckets, 5u);
    EXPECT_EQ(copy->bucket_size, 3u);
    const struct {
        const char *key;
        const char *text;
        bool shared;
    } cases[] = {{"owned", "text", false}, {"freed", "heap", false}, {"borrowed", "text", true}};
    for (const auto &test : cases) {
        void *ours = nullptr;
        void *theirs = nullptr;
        EXPECT_EQ(vc_map_fetch(map, test.key, &ours), 1);
        EXPECT_EQ(vc_map_fetch(copy, test.key, &theirs), 1);
        EXPECT_STREQ(static_cast<char *>(theirs), test.text) << test.key;
        EXPECT_EQ(ours == theirs, test.shared) << test.key;
    }
    int32_t number = 0;
    EXPECT_EQ(vc_map_fetch_int32(copy, "inline", &number), 1);
    EXPECT_EQ(number, -7);
}

TEST_F(vc_hashmap_values, copying_passes_a_foreign_release_function_on) {
    int number = 0;
    {
        const owned_map map;
        EXPECT_EQ(vc_map_store_ex(map, "a", &number, 4, 0, counting_free), 1);
        EXPECT_EQ(vc_map_destroy(vc_map_copy_ex(map, 0, 0)), 1);
        EXPECT_EQ(freed_count, 1);
    }
    EXPECT_EQ(freed_count, 2);
}

TEST_F(vc_hashmap_values, a_copy_that_fails_leaves_shared_values_alone) {
    const owned_map map(1, 3);
    int number = 0;
    EXPECT_EQ(vc_map_store_ex(map, "a", &number, 4, 0, counting_free), 1);
    store_all(map, {twin, other_twin});
    EXPECT_EQ(vc_map_copy_ex(map, 0, 1), nullptr);
    EXPECT_EQ(freed_count, 0);
    EXPECT_EQ(log.errors(), (lines{"vc_map_store_ex: Failed to rehash map.?",
                                   "vc_map_copy_ex: Failed to copy map element [key = krgc]"}));
}

TEST_F(vc_hashmap_test, copying_into_another_geometry) {
    const owned_map map(5, 3);
    store_all(map, {"a", "b", "c", "d", "e"});
    const owned_map copy(vc_map_copy_ex(map, 7, 9));
    EXPECT_EQ(copy->num_buckets, 7u);
    EXPECT_EQ(copy->bucket_size, 9u);
    EXPECT_EQ(order_of(copy), "a b c d e");
    const owned_map grown(vc_map_copy_ex(map, 1, 1)); // grows until no two share a bucket
    EXPECT_EQ(grown->bucket_size, 1u);
    EXPECT_GT(grown->num_buckets, 5u);
    EXPECT_EQ(order_of(grown), "a b c d e");
    EXPECT_EQ(vc_map_copy_ex(map, 65536, 65536), nullptr);
    EXPECT_EQ(log.errors(), (lines{"vc_map_create: Cannot create a map that big! (65536 buckets * "
                                   "65536 bucket size > UINT32_MAX)",
                                   "vc_map_copy_ex: Failed to create empty map for copying"}));
}

// The geometry that real copies find, tried one by one.
std::pair<uint32_t, uint32_t> shrunk_by_trial(const vc_hashmap *map) {
    uint32_t best = map->map_size;
    std::pair<uint32_t, uint32_t> geometry(map->num_buckets, map->bucket_size);
    for (uint32_t buckets = 1; buckets < map->num_buckets; ++buckets) {
        for (uint32_t slots = 1; slots < map->bucket_size; ++slots) {
            if (buckets * slots < map->num_pairs) {
                continue;
            }
            const owned_map trial(vc_map_copy_ex(map, buckets, slots));
            const std::pair<uint32_t, uint32_t> found(trial->num_buckets, trial->bucket_size);
            if (trial->map_size == map->num_pairs) {
                return found;
            }
            if (trial->map_size < best) {
                best = trial->map_size;
                geometry = found;
            }
        }
    }
    return geometry;
}

TEST_F(vc_hashmap_test, shrinking_finds_what_trials_find) {
    dice random(2);
    for (int round = 0; round < 60; ++round) {
        const owned_map map(1 + random.below(24), 1 + random.below(6));
        const int count = static_cast<int>(random.below(40));
        for (int i = 0; i < count; ++i) {
            vc_map_store_int32(map, ("k" + std::to_string(random.below(1000))).c_str(), i);
        }
        const auto want = shrunk_by_trial(map);
        const std::string order = order_of(map);
        const owned_map shrunk(vc_map_shrink(map));
        EXPECT_EQ(std::make_pair(shrunk->num_buckets, shrunk->bucket_size), want)
            << map->num_buckets << " x " << map->bucket_size << ", " << map->num_pairs;
        EXPECT_EQ(order_of(shrunk), order);
        EXPECT_EQ(order_of(map), order);
    }
}

TEST_F(vc_hashmap_test, shrinking_by_hand) {
    const owned_map map(5, 3);
    store_all(map, {"a", "b"});
    const owned_map shrunk(vc_map_shrink(map)); // 1 x 2 holds both and is full
    EXPECT_EQ(shrunk->num_buckets, 1u);
    EXPECT_EQ(shrunk->bucket_size, 2u);
    const owned_map empty(5, 3);
    const owned_map smallest(vc_map_shrink(empty));
    EXPECT_EQ(smallest->map_size, 1u);
    const owned_map narrow(5, 1); // no smaller slot count to try
    store_all(narrow, {"a"});
    const owned_map same(vc_map_shrink(narrow));
    EXPECT_EQ(same->map_size, 5u);
}

TEST_F(vc_hashmap_test, a_trial_that_fails_fails_the_shrinking) {
    const owned_map map(5, 3); // 3 x 1 can't hold the twins, whatever it grows to
    store_all(map, {"a", twin, other_twin});
    EXPECT_EQ(vc_map_shrink(map), nullptr);
    EXPECT_EQ(log.errors(), lines{"vc_map_shrink: " + text_of(ENOMEM)});
}

// ---- Order ----

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

// ---- Static maps ----

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

// ---- Without memory ----

// Runs an operation with its n-th allocation failing.
template <class Operation>
auto without_allocation(unsigned n, Operation operation) {
    const testing::failing_allocation failing(n);
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

// ---- Against a plain model ----

struct model_entry {
    std::string key;
    int64_t value;
};

// What a map must do, in the plainest way.
class model {
  public:
    std::vector<model_entry> entries; // in insertion order

    std::vector<model_entry>::iterator find(const std::string &key) {
        return std::find_if(entries.begin(), entries.end(),
                            [&](const model_entry &entry) { return entry.key == key; });
    }
    bool has(const std::string &key) {
        return find(key) != entries.end();
    }
};

// Compares everything that can be asked of a map with the model, and looks into the table.
void expect_same(const vc_hashmap *map, model &want) {
    ASSERT_EQ(vc_map_count(map), want.entries.size());
    vc_map_iterator *forward = vc_map_iterator_start_ex(map, 0);
    vc_map_iterator *backward = vc_map_iterator_start_ex(map, 1);
    const char *key = nullptr;
    void *value = nullptr;
    for (size_t i = 0; i < want.entries.size(); ++i) {
        const model_entry &entry = want.entries[i];
        const model_entry &mirrored = want.entries[want.entries.size() - 1 - i];
        int64_t number = 0;
        ASSERT_EQ(vc_map_iterator_peek_next(forward, &key, nullptr), 1);
        ASSERT_EQ(key, entry.key);
        ASSERT_EQ(vc_map_iterator_next(forward, &key, &value), 1);
        ASSERT_EQ(key, entry.key);
        ASSERT_EQ(reinterpret_cast<intptr_t>(value), entry.value);
        ASSERT_EQ(vc_map_iterator_next(backward, &key, nullptr), 1);
        ASSERT_EQ(key, mirrored.key);
        ASSERT_EQ(vc_map_fetch_int64(map, entry.key.c_str(), &number), 1);
        ASSERT_EQ(number, entry.value);
        ASSERT_EQ(vc_map_index(map, static_cast<uint32_t>(i), &key, nullptr), 1);
        ASSERT_EQ(key, entry.key);
    }
    EXPECT_EQ(vc_map_iterator_next(forward, nullptr, nullptr), 0);
    EXPECT_EQ(vc_map_iterator_next(backward, nullptr, nullptr), 0);
    vc_map_iterator_free(forward);
    vc_map_iterator_free(backward);

    ASSERT_EQ(uint64_t{map->num_buckets} * map->bucket_size, map->map_size);
    size_t occupied = 0;
    for (uint32_t slot = 0; slot < map->map_size; ++slot) {
        if (const hash_pair_t *pair = map->pairs[slot]) {
            ++occupied;
            ASSERT_EQ(pair->hash, expected_hash(pair->key));
            ASSERT_EQ(pair->hash % map->num_buckets, slot / map->bucket_size);
        }
    }
    ASSERT_EQ(occupied, want.entries.size());
}

int by_value(const void *a, const void *b) {
    const int64_t left = *static_cast<const int64_t *>(a) / 8;
    const int64_t right = *static_cast<const int64_t *>(b) / 8;
    return left > right ? 1 : left < right ? -1 : 0;
}

class model_run {
  public:
    model_run(uint32_t seed, uint32_t buckets, uint32_t slots)
        : random_(seed), map_(vc_map_create(buckets, slots)) {}
    ~model_run() {
        vc_map_destroy(map_);
    }
    model_run(const model_run &) = delete;
    model_run &operator=(const model_run &) = delete;

    void run(int steps) {
        for (int i = 0; i < steps && !::testing::Test::HasFatalFailure(); ++i) {
            step();
            if (i % 16 == 0) {
                compare();
            }
        }
        compare();
    }

  private:
    std::string some_key() {
        return "key " + std::to_string(random_.below(150));
    }
    void compare() {
        expect_same(map_, want_);
        const std::string key = some_key();
        ASSERT_EQ(vc_map_fetch(map_, key.c_str(), nullptr), want_.has(key) ? 1 : 0);
    }
    void step() {
        static const struct {
            unsigned below; // of a thousand
            void (model_run::*act)(const std::string &key);
        } actions[] = {
            {400, &model_run::store},         {520, &model_run::update}, {740, &model_run::remove},
            {870, &model_run::rename},        {940, &model_run::find},   {955, &model_run::sort},
            {965, &model_run::grow},          {975, &model_run::copy},   {985, &model_run::shrink},
            {998, &model_run::save_and_load}, {1000, &model_run::clear}};
        const uint32_t thrown = random_.below(1000);
        const auto *action = actions;
        while (thrown >= action->below) {
            ++action;
        }
        (this->*action->act)(some_key());
    }
    int64_t some_value() {
        return static_cast<int64_t>(random_.below(64));
    }
    void store(const std::string &key) {
        const int64_t value = some_value();
        const bool known = want_.has(key);
        ASSERT_EQ(vc_map_store_int64(map_, key.c_str(), value), known ? 0 : 1);
        if (!known) {
            want_.entries.push_back({key, value});
        }
    }
    void update(const std::string &key) {
        const int64_t value = some_value();
        const auto found = want_.find(key);
        const bool known = found != want_.entries.end();
        ASSERT_EQ(vc_map_update_int64(map_, key.c_str(), value), known ? 1 : 0);
        if (known) {
            found->value = value;
        }
    }
    void remove(const std::string &key) {
        const auto found = want_.find(key);
        const bool known = found != want_.entries.end();
        ASSERT_EQ(vc_map_remove(map_, key.c_str()), known ? 1 : 0);
        if (known) {
            want_.entries.erase(found);
        }
    }
    void rename(const std::string &key) {
        const std::string fresh = some_key();
        const bool possible = want_.has(key) && !want_.has(fresh);
        ASSERT_EQ(vc_map_rename(map_, key.c_str(), fresh.c_str()), possible ? 1 : 0);
        if (possible) {
            want_.find(key)->key = fresh;
        }
    }
    void find(const std::string &) {
        const int64_t value = some_value();
        const bool held =
            std::any_of(want_.entries.begin(), want_.entries.end(),
                        [&](const model_entry &entry) { return entry.value == value; });
        const char *key = nullptr;
        ASSERT_EQ(vc_map_find(map_, &value, nullptr, &key), held ? 1 : 0);
        if (held) {
            const auto found = want_.find(key);
            ASSERT_NE(found, want_.entries.end()) << key;
            ASSERT_EQ(found->value, value) << key;
        }
    }
    void sort(const std::string &) {
        ASSERT_EQ(vc_map_sort(map_, by_value, 0), 1);
        std::stable_sort(
            want_.entries.begin(), want_.entries.end(),
            [](const model_entry &a, const model_entry &b) { return a.value / 8 < b.value / 8; });
    }
    void grow(const std::string &) {
        if (map_->map_size < 5000) {
            ASSERT_EQ(vc_map_rehash(map_), 1);
        }
    }
    void copy(const std::string &) {
        const uint32_t buckets = 1 + random_.below(9);
        replace(vc_map_copy_ex(map_, buckets, 2 + random_.below(9)));
    }
    void shrink(const std::string &) {
        replace(vc_map_shrink(map_));
    }
    // Over the file of an earlier save, which may have been longer.
    void save_and_load(const std::string &) {
        static constexpr char path[] = "c:/quillfence/model.map";
        ASSERT_EQ(vc_map_save(map_, path, 1), 1);
        vc_hashmap *loaded = vc_map_load(path);
        ASSERT_NE(loaded, nullptr);
        EXPECT_EQ(loaded->num_buckets, map_->num_buckets);
        EXPECT_EQ(loaded->bucket_size, map_->bucket_size);
        replace(loaded);
    }
    void clear(const std::string &) {
        ASSERT_EQ(vc_map_clear(map_), 1);
        want_.entries.clear();
    }
    void replace(vc_hashmap *copy) {
        ASSERT_NE(copy, nullptr);
        ASSERT_EQ(vc_map_destroy(map_), 1);
        map_ = copy;
    }

    dice random_;
    vc_hashmap *map_;
    model want_;
};

class vc_hashmap_model : public testing::drive_test {};

TEST_F(vc_hashmap_model, random_operations_do_as_the_model_does) {
    const struct {
        uint32_t buckets;
        uint32_t slots;
    } geometries[] = {{0, 0}, {1, 1}, {1, 3}, {3, 2}, {5, 13}, {16, 4}, {97, 1}};
    uint32_t seed = 1;
    for (const auto &geometry : geometries) {
        SCOPED_TRACE(::testing::Message() << geometry.buckets << " x " << geometry.slots);
        for (int round = 0; round < 3; ++round) {
            model_run(++seed, geometry.buckets, geometry.slots).run(800);
        }
    }
}

} // namespace
} // namespace quillfence
