// Buckets and slots: the hash, growing and shrinking.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "error_text.h"
#include "map_fixture.h"

namespace quillfence::testing {
namespace {

// --- Hash ---

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

// --- Creating, growing ---

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

// --- Copying, shrinking ---

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

} // namespace
} // namespace quillfence::testing
