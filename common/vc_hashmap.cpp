#include "vc_hashmap.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "byte_cursor.h"
#include "vc_hashmap_internal.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "vc_hashmap";

static_assert(std::endian::native == std::endian::little); // inline values are saved as they lie

// What a map made without slots gets at its first store.
static constexpr uint32_t first_buckets = 5;
static constexpr uint32_t first_slots = 13;

static constexpr uint32_t largest_bucket_count = 4294967291; // the largest 32-bit prime

// --- Hashing ---

uint32_t hashmap::__super_fast_hash(const char *data, size_t length) {
    if (!data || !length) {
        QF_EINVAL();
        return 0;
    }
    uint32_t hash = static_cast<uint32_t>(length);
    for (size_t blocks = length / 4; blocks; --blocks, data += 4) {
        hash += load_le16(data);
        hash = (hash << 16) ^ (uint32_t{load_le16(data + 2)} << 11) ^ hash;
        hash += hash >> 11;
    }
    // Single tail bytes count as unsigned, unlike in the published form of this hash.
    switch (length % 4) {
    case 3:
        hash += load_le16(data);
        hash ^= hash << 16;
        hash ^= uint32_t{static_cast<unsigned char>(data[2])} << 18;
        hash += hash >> 11;
        break;
    case 2:
        hash += load_le16(data);
        hash ^= hash << 11;
        hash += hash >> 17;
        break;
    case 1:
        hash += static_cast<unsigned char>(data[0]);
        hash ^= hash << 10;
        hash += hash >> 1;
        break;
    }
    hash ^= hash << 3;
    hash += hash >> 5;
    hash ^= hash << 4;
    hash += hash >> 17;
    hash ^= hash << 25;
    hash += hash >> 6;
    return hash;
}

static uint32_t hash_of(const char *key) {
    return hashmap::__super_fast_hash(key, strlen(key));
}

uint32_t vc_map_hash(const char *key) {
    if (!key) {
        QF_EINVAL();
        return 0;
    }
    return hash_of(key);
}

// --- Entries ---

hash_pair_t *hashmap::make_pair(const char *key, size_t length, const pair_value &value) {
    heap_ptr<hash_pair_t> pair(static_cast<hash_pair_t *>(calloc(1, sizeof(hash_pair_t))));
    heap_string key_copy(static_cast<char *>(malloc(length + 1)));
    if (!pair || !key_copy) {
        return nullptr;
    }
    memcpy(key_copy.get(), key, length);
    key_copy.get()[length] = '\0';
    pair->flags = value.flags & ~MAP_PAIR_OWNED;
    pair->value = value.value;
    if ((value.flags & MAP_PAIR_OWNED) && value.value) {
        pair->value = malloc(std::max<uint64_t>(value.size, 1));
        if (!pair->value) {
            return nullptr;
        }
        memcpy(pair->value, value.value, value.size);
        pair->flags |= MAP_PAIR_OWNED;
    }
    pair->hash = hash_of(key_copy.get());
    pair->key = key_copy.release();
    pair->size = value.size;
    pair->freefn = value.freefn;
    return pair.release();
}

static void release_value(const hash_pair_t *pair) {
    if (pair->freefn) {
        pair->freefn(pair->value);
    } else if (pair->flags & MAP_PAIR_OWNED) {
        free(pair->value);
    }
}

void hashmap::release_pair(hash_pair_t *pair) {
    release_value(pair);
    free(pair->key);
    free(pair);
}

void hashmap::discard_pair(hash_pair_t *pair) {
    if (!(pair->flags & MAP_PAIR_OWNED)) {
        pair->freefn = nullptr;
    }
    release_pair(pair);
}

// --- Buckets ---

struct slot_range {
    hash_pair_t **first;
    hash_pair_t **last;
    hash_pair_t **begin() const {
        return first;
    }
    hash_pair_t **end() const {
        return last;
    }
};

// The slots of a hash's bucket; none in a map without slots.
static slot_range bucket_of(const vc_hashmap *map, uint32_t hash) {
    if (!map->map_size) {
        return {nullptr, nullptr};
    }
    hash_pair_t **first = map->pairs + size_t{hash % map->num_buckets} * map->bucket_size;
    return {first, first + map->bucket_size};
}

static slot_range all_slots(const vc_hashmap *map) {
    return {map->pairs, map->pairs + map->map_size};
}

static bool has_key(const hash_pair_t *pair, uint32_t hash, const char *key) {
    return pair && pair->hash == hash && strcmp(pair->key, key) == 0;
}

static hash_pair_t **find_slot(const vc_hashmap *map, const char *key, uint32_t hash) {
    for (hash_pair_t *&slot : bucket_of(map, hash)) {
        if (has_key(slot, hash, key)) {
            return &slot;
        }
    }
    return nullptr;
}

static hash_pair_t *find_pair(const vc_hashmap *map, const char *key) {
    hash_pair_t **slot = find_slot(map, key, hash_of(key));
    return slot ? *slot : nullptr;
}

hash_pair_t **hashmap::slot_of(const vc_hashmap *map, const hash_pair_t *pair) {
    const slot_range bucket = bucket_of(map, pair->hash);
    hash_pair_t **slot = std::find(bucket.begin(), bucket.end(), pair);
    return slot == bucket.end() ? nullptr : slot;
}

// Whether the next table would be far larger than its entries are worth. That comes of keys that
// were chosen to share buckets in every table, and growing on would only use the memory up. Narrow
// buckets fill early by themselves, and small tables cost little.
static bool is_growing_wild(const vc_hashmap *map) {
    constexpr uint64_t small_table = uint64_t{1} << 20;
    const uint32_t *size = hashmap::next_table_size(map->num_buckets);
    if (size == std::end(hashmap::table_sizes) || map->bucket_size < first_slots) {
        return false;
    }
    const uint64_t slots = uint64_t{*size} * map->bucket_size;
    return slots > small_table && slots / hashmap::most_slots_an_entry > map->num_pairs;
}

enum class placement { placed, key_taken, failed };

// Puts an entry into its bucket, growing the table while the bucket is full. The chain and the
// count stay as they are.
static placement place(const char *operation, vc_hashmap *map, hash_pair_t *pair) {
    for (;;) {
        hash_pair_t **free_slot = nullptr;
        bool growing_helps = false; // entries of one hash stay together in any table
        for (hash_pair_t *&slot : bucket_of(map, pair->hash)) {
            if (has_key(slot, pair->hash, pair->key)) {
                return placement::key_taken;
            }
            if (!slot && !free_slot) {
                free_slot = &slot;
            }
            growing_helps = growing_helps || (slot && slot->hash != pair->hash);
        }
        if (free_slot) {
            *free_slot = pair;
            return placement::placed;
        }
        if (!growing_helps || is_growing_wild(map) || !vc_map_rehash(map)) {
            QF_ERROR_AS(operation, "Failed to rehash map.\n");
            return placement::failed;
        }
    }
}

// --- The chain ---

void hashmap::append_to_chain(vc_hashmap *map, hash_pair_t *pair) {
    pair->prev = map->last;
    pair->next = nullptr;
    (map->last ? map->last->next : map->first) = pair;
    map->last = pair;
}

static void remove_from_chain(vc_hashmap *map, hash_pair_t *pair) {
    (pair->prev ? pair->prev->next : map->first) = pair->next;
    (pair->next ? pair->next->prev : map->last) = pair->prev;
}

static void free_entries(vc_hashmap *map) {
    for (hash_pair_t *pair = map->first; pair;) {
        hash_pair_t *next = pair->next;
        hashmap::release_pair(pair);
        pair = next;
    }
    map->first = nullptr;
    map->last = nullptr;
    map->num_pairs = 0;
}

// --- Life ---

static bool make_slots(vc_hashmap *map, uint32_t buckets, uint32_t slots) {
    const size_t total = size_t{buckets} * slots;
    map->pairs = total ? static_cast<hash_pair_t **>(calloc(total, sizeof *map->pairs)) : nullptr;
    if (!map->pairs) {
        return false;
    }
    map->num_buckets = buckets;
    map->bucket_size = slots;
    map->map_size = static_cast<uint32_t>(total);
    return true;
}

vc_hashmap *vc_map_create(uint32_t buckets, uint32_t slots) {
    if (hashmap::too_many_slots(buckets, slots)) {
        QF_ERROR("Cannot create a map that big! (%u buckets * %u bucket size > UINT32_MAX)",
                 buckets, slots);
        return nullptr;
    }
    heap_ptr<vc_hashmap> map(static_cast<vc_hashmap *>(calloc(1, sizeof(vc_hashmap))));
    if (!map) {
        QF_ENOMEM();
        return nullptr;
    }
    map->num_buckets = buckets;
    if (slots && !make_slots(map.get(), buckets, slots)) {
        QF_ERROR("Failed to initialize buckets of new map");
        return nullptr;
    }
    return map.release();
}

void hashmap::free_table(vc_hashmap *map) {
    free(map->pairs);
    free(map);
}

int vc_map_destroy(vc_hashmap *map) {
    if (!map) {
        QF_EINVAL();
        return 0;
    }
    if (hashmap::is_static(map)) {
        QF_ERROR("Attempting to destroy a static hashmap!");
        return 0;
    }
    free_entries(map);
    hashmap::free_table(map);
    return 1;
}

int vc_map_clear(vc_hashmap *map) {
    if (!map) {
        QF_EINVAL();
        return 0;
    }
    if (hashmap::is_static(map)) {
        QF_ERROR("Attempting to clear a static hashmap!");
        return 0;
    }
    free_entries(map);
    std::fill(all_slots(map).begin(), all_slots(map).end(), nullptr);
    return 1;
}

uint32_t vc_map_count(const vc_hashmap *map) {
    if (!map) {
        QF_EINVAL();
        return 0;
    }
    return map->num_pairs;
}

uint64_t vc_map_memory_size(const vc_hashmap *map) {
    if (!map) {
        QF_EINVAL();
        return 0;
    }
    uint64_t size = sizeof *map + uint64_t{map->map_size} * sizeof *map->pairs;
    vc_map_iterator entries = hashmap::walk(map);
    while (const hash_pair_t *pair = hashmap::next_entry(&entries)) {
        size += sizeof *pair + strlen(pair->key) + 1 + pair->size;
    }
    return size;
}

// --- Storing, fetching ---

static constexpr char foreign_free[] =
    "Cannot request 'copy' and specify a freefn that isn't 'void free(void *)'";

static bool is_foreign(vc_map_free_function freefn) {
    return freefn && freefn != free;
}

static hashmap::pair_value pointer_value(void *value, uint64_t size, int copy,
                                         vc_map_free_function freefn) {
    return {value, size, copy ? MAP_PAIR_OWNED : 0, freefn};
}

static int store(const char *operation, vc_hashmap *map, const char *key,
                 const hashmap::pair_value &value) {
    if (!map || !key) {
        QF_ERRNO_AS(operation, EINVAL);
        return 0;
    }
    if (hashmap::is_static(map)) {
        QF_ERROR_AS(operation, "Attempting to store entries in a static hashmap!");
        return 0;
    }
    if ((value.flags & MAP_PAIR_OWNED) && is_foreign(value.freefn)) {
        QF_ERROR_AS(operation, "%s", foreign_free);
        return 0;
    }
    hash_pair_t *pair = hashmap::make_pair(key, strlen(key), value);
    if (!pair) {
        QF_ERROR_AS(operation,
                    "Cannot create new key-value pair when attemping to store data in map");
        return 0;
    }
    if (!map->map_size && !make_slots(map, first_buckets, first_slots)) {
        QF_ERROR_AS(operation, "Failed to initialize new map");
        hashmap::discard_pair(pair);
        return 0;
    }
    if (place(operation, map, pair) != placement::placed) {
        hashmap::discard_pair(pair);
        return 0;
    }
    ++map->num_pairs;
    hashmap::append_to_chain(map, pair);
    return 1;
}

int vc_map_store_ex(vc_hashmap *map, const char *key, void *value, uint64_t size, int copy,
                    vc_map_free_function freefn) {
    return store(__func__, map, key, pointer_value(value, size, copy, freefn));
}

int vc_map_fetch(const vc_hashmap *map, const char *key, void **value) {
    if (!map || !key) {
        QF_EINVAL();
        return 0;
    }
    const hash_pair_t *pair = find_pair(map, key);
    if (!pair) {
        return 0;
    }
    if (value) {
        *value = pair->value;
    }
    return 1;
}

static int update(const char *operation, vc_hashmap *map, const char *key,
                  const hashmap::pair_value &value) {
    if (!map || !key) {
        QF_ERRNO_AS(operation, EINVAL);
        return 0;
    }
    if (hashmap::is_static(map)) {
        QF_ERROR_AS(operation, "Attempting to update entries in a static hashmap!");
        return 0;
    }
    if ((value.flags & MAP_PAIR_OWNED) && is_foreign(value.freefn)) {
        QF_ERROR_AS(operation, "%s", foreign_free);
        return 0;
    }
    hash_pair_t *pair = find_pair(map, key);
    if (!pair) {
        return 0;
    }
    void *fresh = value.value;
    const bool copied = (value.flags & MAP_PAIR_OWNED) && value.value;
    if (copied) {
        fresh = malloc(std::max<uint64_t>(value.size, 1));
        if (!fresh) {
            QF_ERRNO_AS(operation, ENOMEM);
            return 0;
        }
        memcpy(fresh, value.value, value.size);
    }
    if (fresh != pair->value) { // handing in what is there already must not free it
        release_value(pair);
    }
    pair->value = fresh;
    pair->size = value.size;
    pair->freefn = value.freefn;
    pair->flags &= ~(MAP_PAIR_OWNED | MAP_PAIR_INLINE);
    pair->flags |= copied ? MAP_PAIR_OWNED : value.flags & MAP_PAIR_INLINE;
    return 1;
}

int vc_map_update_ex(vc_hashmap *map, const char *key, void *value, uint64_t size, int copy,
                     vc_map_free_function freefn) {
    return update(__func__, map, key, pointer_value(value, size, copy, freefn));
}

int vc_map_remove(vc_hashmap *map, const char *key) {
    if (!map || !key) {
        QF_EINVAL();
        return 0;
    }
    if (hashmap::is_static(map)) {
        QF_ERROR("Attempting to remove entries from a static hashmap!");
        return 0;
    }
    hash_pair_t **slot = find_slot(map, key, hash_of(key));
    if (!slot) {
        return 0;
    }
    remove_from_chain(map, *slot);
    hashmap::release_pair(*slot);
    *slot = nullptr;
    --map->num_pairs;
    return 1;
}

int vc_map_rename(vc_hashmap *map, const char *old_key, const char *new_key) {
    if (!map || !old_key || !new_key) {
        QF_EINVAL();
        return 0;
    }
    if (hashmap::is_static(map)) {
        QF_ERROR("Attempting to rename entries in a static hashmap!");
        return 0;
    }
    hash_pair_t *pair = find_pair(map, old_key);
    if (!pair) {
        return 0;
    }
    const uint32_t hash = hash_of(new_key);
    if (find_slot(map, new_key, hash)) {
        return 0;
    }
    char *key = strdup(new_key);
    if (!key) {
        QF_ENOMEM();
        return 0;
    }
    hash_pair_t **slot = hashmap::slot_of(map, pair);
    if (!slot) {
        QF_ERROR("Failed to manually remove old pair from map");
        free(key);
        return 0;
    }
    *slot = nullptr;
    --map->num_pairs;
    free(pair->key);
    pair->key = key;
    pair->hash = hash;
    if (place(__func__, map, pair) != placement::placed) {
        QF_ERROR("Failed to store pair with new key [%s] for map entry rename! Map may be "
                 "corrupted!",
                 key);
        return 0;
    }
    ++map->num_pairs;
    return 1;
}

static bool has_value(const hash_pair_t *pair, const void *value) {
    if (!pair->size) {
        return pair->value == value;
    }
    const void *bytes = hashmap::value_bytes(pair);
    return bytes && value && memcmp(value, bytes, pair->size) == 0;
}

int vc_map_find(const vc_hashmap *map, const void *value, vc_map_match_function match,
                const char **key) {
    if (!map) {
        QF_EINVAL();
        return 0;
    }
    for (const hash_pair_t *pair : all_slots(map)) {
        if (pair && (match ? match(value, pair->value) != 0 : has_value(pair, value))) {
            if (key) {
                *key = pair->key;
            }
            return 1;
        }
    }
    return 0;
}

// --- Typed operations ---

template <class Value>
static hashmap::pair_value inline_value(Value value) {
    static_assert(sizeof value <= sizeof(void *));
    hashmap::pair_value stored = {nullptr, sizeof value, MAP_PAIR_INLINE, nullptr};
    memcpy(&stored.value, &value, sizeof value);
    return stored;
}

static int fetch_inline(const char *operation, const vc_hashmap *map, const char *key, void *value,
                        size_t width) {
    if (!map || !key || !value) {
        QF_ERRNO_AS(operation, EINVAL);
        return 0;
    }
    const hash_pair_t *pair = find_pair(map, key);
    if (!pair) {
        return 0;
    }
    if (!hashmap::is_inline(pair)) {
        QF_ERRNO_AS(operation, EINVAL);
        return 0;
    }
    memcpy(value, &pair->value, width);
    return 1;
}

// A bool may come from a file with any bits.
static int fetch_inline(const char *operation, const vc_hashmap *map, const char *key,
                        bool *value) {
    unsigned char byte = 0;
    if (!fetch_inline(operation, map, key, value ? &byte : nullptr, sizeof byte)) {
        return 0;
    }
    *value = byte != 0;
    return 1;
}
template <class Value>
static int fetch_inline(const char *operation, const vc_hashmap *map, const char *key,
                        Value *value) {
    return fetch_inline(operation, map, key, value, sizeof *value);
}

#define TYPED_OPERATIONS(name, type)                                                               \
    int vc_map_store_##name(vc_hashmap *map, const char *key, type value) {                        \
        return store(__func__, map, key, inline_value(value));                                     \
    }                                                                                              \
    int vc_map_fetch_##name(const vc_hashmap *map, const char *key, type *value) {                 \
        return fetch_inline(__func__, map, key, value);                                            \
    }                                                                                              \
    int vc_map_update_##name(vc_hashmap *map, const char *key, type value) {                       \
        return update(__func__, map, key, inline_value(value));                                    \
    }

TYPED_OPERATIONS(int64, int64_t)
TYPED_OPERATIONS(uint64, uint64_t)
TYPED_OPERATIONS(int32, int32_t)
TYPED_OPERATIONS(uint32, uint32_t)
TYPED_OPERATIONS(double, double)
TYPED_OPERATIONS(float, float)
TYPED_OPERATIONS(bool, bool)

#undef TYPED_OPERATIONS

// --- The table ---

// Puts every entry of `from` into `to` as well, in slot order; `to` counts them.
static bool redistribute(const char *operation, const vc_hashmap *from, vc_hashmap *to) {
    for (hash_pair_t *pair : all_slots(from)) {
        if (!pair) {
            continue;
        }
        if (place(operation, to, pair) != placement::placed) {
            QF_ERROR_AS(operation, "Failed to store pair");
            return false;
        }
        ++to->num_pairs;
    }
    return true;
}

int vc_map_rehash(vc_hashmap *map) {
    if (!map) {
        QF_EINVAL();
        return 0;
    }
    if (hashmap::is_static(map)) {
        QF_ERROR("Attempting to rehash a static hashmap!");
        return 0;
    }
    const uint32_t *size = hashmap::next_table_size(map->num_buckets);
    if (size == std::end(hashmap::table_sizes)) {
        if (map->num_buckets == largest_bucket_count) {
            QF_ERROR("Map is at max size: %u buckets.", map->num_buckets);
        } else {
            QF_ERROR("Cannot determine new table size.");
        }
        return 0;
    }
    vc_hashmap *grown = vc_map_create(*size, map->bucket_size);
    if (!grown) {
        return 0;
    }
    bool complete = redistribute(__func__, map, grown);
    if (!complete) {
        QF_ERROR("Failed to redistribute map");
    } else if (grown->num_pairs != map->num_pairs) {
        QF_ERROR("Maps have different counts after redistribution: old:%d != new:%d.\n",
                 static_cast<int>(map->num_pairs), static_cast<int>(grown->num_pairs));
        complete = false;
    }
    if (complete) {
        std::swap(map->pairs, grown->pairs);
        map->num_buckets = grown->num_buckets;
        map->map_size = grown->map_size;
    }
    hashmap::free_table(grown);
    return complete ? 1 : 0;
}

// How a copy of a map holds one of the source's values.
static hashmap::pair_value value_for_copy(const vc_hashmap *source, const hash_pair_t *pair) {
    const bool owned = (pair->flags & MAP_PAIR_OWNED) || pair->freefn == free;
    const bool copied = owned && pair->value && !hashmap::is_static(source);
    return {pair->value, pair->size, copied ? MAP_PAIR_OWNED : pair->flags & MAP_PAIR_INLINE,
            pair->freefn};
}

// Destroys a copy that did not get finished; values shared with the source stay alive.
static void destroy_copy(vc_hashmap *copy) {
    for (hash_pair_t *pair = copy->first; pair; pair = pair->next) {
        if (!(pair->flags & MAP_PAIR_OWNED)) {
            pair->freefn = nullptr;
        }
    }
    free_entries(copy);
    hashmap::free_table(copy);
}

vc_hashmap *vc_map_copy_ex(const vc_hashmap *map, uint32_t buckets, uint32_t slots) {
    if (!map) {
        QF_EINVAL();
        return nullptr;
    }
    vc_hashmap *copy =
        vc_map_create(buckets ? buckets : map->num_buckets, slots ? slots : map->bucket_size);
    if (!copy) {
        QF_ERROR("Failed to create empty map for copying");
        return nullptr;
    }
    vc_map_iterator *entries = vc_map_iterator_start_ex(map, 0);
    if (!entries) {
        QF_ERROR("Failed to create map iterator");
        destroy_copy(copy);
        return nullptr;
    }
    while (const hash_pair_t *pair = hashmap::next_entry(entries)) {
        if (!store("vc_map_store_ex", copy, pair->key, value_for_copy(map, pair))) {
            QF_ERROR("Failed to copy map element [key = %s]", pair->key);
            destroy_copy(copy);
            copy = nullptr;
            break;
        }
    }
    vc_map_iterator_free(entries);
    if (copy) {
        copy->flags = map->flags & ~MAP_FLAG_STATIC;
    }
    return copy;
}

} // namespace quillfence
