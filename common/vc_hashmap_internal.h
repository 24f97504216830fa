// What the source files of the hash map share. Nobody else includes this.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "vc_hashmap.h"

namespace quillfence {

struct vc_map_iterator {
    // A place in the walk: an entry, and in a static map the slot that it is in.
    struct cursor {
        const hash_pair_t *pair;
        int64_t slot;
    };
    uint32_t flags;
    const vc_hashmap *map;
    cursor current;
    cursor next; // taken when current was reached, so that current may be removed
    cursor prev;
};

namespace hashmap {

// The bucket counts that a table grows through.
inline constexpr uint32_t table_sizes[] = {
    5,         11,        23,        47,         97,        199,      409,      823,
    1741,      3469,      6949,      14033,      28411,     57557,    116731,   236897,
    480881,    976369,    1982627,   4026031,    8175383,   16601593, 33712729, 68460391,
    139022417, 282312799, 573292817, 1164186217, 2364114217};
// The first table size above a bucket count; the array's end when there is none.
inline const uint32_t *next_table_size(uint32_t buckets) {
    return std::upper_bound(std::begin(table_sizes), std::end(table_sizes), buckets);
}
// A table that grew by itself has less than a quarter of this many slots for each entry, unless it
// is small or its keys were made to share buckets.
inline constexpr uint64_t most_slots_an_entry = 64;

inline bool too_many_slots(uint32_t buckets, uint32_t slots) {
    return uint64_t{buckets} * slots > UINT32_MAX;
}

// A walk that needs no memory, and its step: the next entry, or null at the end.
vc_map_iterator walk(const vc_hashmap *map);
const hash_pair_t *next_entry(vc_map_iterator *iterator);

// SuperFastHash of length bytes; ERROR line (EINVAL) and 0 for a null or empty text.
uint32_t __super_fast_hash(const char *data, size_t length);

// An entry's value: OWNED in the flags asks for a copy of size bytes, INLINE says that the value
// field holds the bytes themselves.
struct pair_value {
    void *value;
    uint64_t size;
    uint32_t flags;
    vc_map_free_function freefn;
};
// A new entry outside any map, its key being length bytes of text; null without memory.
hash_pair_t *make_pair(const char *key, size_t length, const pair_value &value);
// Frees an entry with its value (the map's way), or without a value that the map did not copy.
void release_pair(hash_pair_t *pair);
void discard_pair(hash_pair_t *pair);

// The slot of an entry in its own bucket; null when it is not there.
hash_pair_t **slot_of(const vc_hashmap *map, const hash_pair_t *pair);
void append_to_chain(vc_hashmap *map, hash_pair_t *pair);

// Frees the record and the slots, and nothing else.
void free_table(vc_hashmap *map);

inline bool is_static(const vc_hashmap *map) {
    return (map->flags & MAP_FLAG_STATIC) != 0;
}
inline bool is_inline(const hash_pair_t *pair) {
    return (pair->flags & MAP_PAIR_INLINE) != 0;
}
// Where the value's bytes are; null for a null value.
inline const void *value_bytes(const hash_pair_t *pair) {
    return is_inline(pair) ? &pair->value : pair->value;
}

} // namespace hashmap
} // namespace quillfence
