// The string-keyed map of the whole system.
//
// The table is a grid of buckets with a fixed number of slots each. A key lives in any slot of the
// bucket hash % num_buckets and nowhere else; a store that finds its bucket full makes the whole
// table grow to the next bucket count of a fixed prime table. Entries are also chained in insertion
// order: that is the order of iteration, of vc_map_index and of the links in a saved file. The
// dump, the saved records and the static initialiser go by slot order.
//
//     bucket 0        bucket 1        bucket 2
//     [a][d][ ]       [c][ ][ ]       [b][e][f]         chain: a <-> b <-> c <-> d <-> e <-> f
//
// A value is either a pointer (owned by the map or not) or, from the typed operations, up to eight
// bytes held in the entry itself. Keys are copied, case-sensitive and never empty in practice (the
// empty key works, but hashing it writes an EINVAL line).
//
// Results are 1 for success and 0 for failure unless a comment says otherwise. A null map or key
// gives an ERROR line with the EINVAL text under the operation's own name and "vc_hashmap"; a
// failed allocation the line named below, or one with the ENOMEM text. A map belongs to one thread.
//
// A constant (static) map carries MAP_FLAG_STATIC and has no chain: everything that goes by
// insertion order goes by slot order there, and every change is refused with its own ERROR line,
// "Attempting to clear a static hashmap!" and so on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace quillfence {

inline constexpr uint32_t MAP_FLAG_STATIC = 1;

// Flag bits of an entry.
inline constexpr uint32_t MAP_PAIR_OWNED = 1; // the value is a heap copy that belongs to the map
// The value field holds the value's bytes. Internal: never written to a file or a printout.
inline constexpr uint32_t MAP_PAIR_INLINE = 0x80000000;

// Frees a value that was stored with it.
using vc_map_free_function = void (*)(void *value);
// Tells whether an entry's value is the one looked for: non-zero for yes.
using vc_map_match_function = int (*)(const void *wanted, const void *value);
// Gets the addresses of two entries' key (or value) fields; 1 or more puts the second one first.
using vc_map_compare_function = int (*)(const void *a, const void *b);

struct hash_pair_t {
    uint32_t flags;
    uint32_t hash;
    char *key;
    void *value;
    uint64_t size; // bytes of the value
    vc_map_free_function freefn;
    hash_pair_t *prev;
    hash_pair_t *next;
};
static_assert(sizeof(hash_pair_t) == 56);

struct vc_hashmap {
    uint32_t flags;
    uint32_t num_buckets;
    uint32_t bucket_size; // slots of one bucket
    uint32_t map_size;    // slots altogether
    uint32_t num_pairs;
    union {
        hash_pair_t **pairs; // null until the first store into a map made with 0 slots
        const hash_pair_t *const *const_pairs;
    };
    hash_pair_t *first;
    hash_pair_t *last;
};
static_assert(sizeof(vc_hashmap) == 48);

struct vc_map_iterator; // opaque

// --- Life ---

// A new empty map that the caller releases with vc_map_destroy, or null. With 0 slots a bucket
// (whatever the bucket count) the map gets no slot array; its first store gives it 5 x 13.
// ERROR lines: "Cannot create a map that big! (%u buckets * %u bucket size > UINT32_MAX)",
// "Failed to initialize buckets of new map" (no memory, or 0 buckets with slots).
vc_hashmap *vc_map_create(uint32_t buckets, uint32_t slots);
// Frees the entries, the slot array and the map. Static: "Attempting to destroy a static hashmap!".
int vc_map_destroy(vc_hashmap *map);
// Frees every entry and keeps the table. Static: "Attempting to clear a static hashmap!".
int vc_map_clear(vc_hashmap *map);
// The number of entries; 0 for a null map.
uint32_t vc_map_count(const vc_hashmap *map);
// An estimate in bytes: the record and its slots, and for each entry the entry, its key and its
// value's size, owned or not. 0 for a null map.
uint64_t vc_map_memory_size(const vc_hashmap *map);
// The hash of a key. The empty key gives an ERROR line with the EINVAL text and 0.
uint32_t vc_map_hash(const char *key);

// --- Storing, fetching ---

// Adds an entry at the end of the insertion order. Without copy the map keeps the value pointer
// and calls freefn (may be null) on it when the entry goes; with copy (and a value that is not
// null) it keeps a heap copy of size bytes, and freefn must be null or free. A refused store leaves
// an uncopied value with the caller.
// A key that is there already is refused without a line.
// ERROR lines: "Attempting to store entries in a static hashmap!", "Cannot request 'copy' and
// specify a freefn that isn't 'void free(void *)'", "Cannot create new key-value pair when
// attemping to store data in map", "Failed to initialize new map", "Failed to rehash map.\n". The
// last also where growing would not help: for keys of one hash, and for keys that were chosen to
// share buckets, once a table of 13 slots a bucket or more would have over a million slots and 64
// for each entry.
int vc_map_store_ex(vc_hashmap *map, const char *key, void *value, uint64_t size, int copy,
                    vc_map_free_function freefn);
// *value (may be null) receives the value pointer, or the bytes of an inline value. 0 without a
// line when the key is absent.
int vc_map_fetch(const vc_hashmap *map, const char *key, void **value);
// Replaces the value of an entry, which keeps its place; arguments as for vc_map_store_ex. The old
// value is released once nothing can fail any more. 0 without a line when the key is absent.
// ERROR line for a static map: "Attempting to update entries in a static hashmap!".
int vc_map_update_ex(vc_hashmap *map, const char *key, void *value, uint64_t size, int copy,
                     vc_map_free_function freefn);
// Removes and frees an entry. 0 without a line when the key is absent.
// ERROR line for a static map: "Attempting to remove entries from a static hashmap!".
int vc_map_remove(vc_hashmap *map, const char *key);
// Gives an entry another key; it keeps its value and its place in the insertion order. 0 without a
// line when old_key is absent or new_key is taken.
// ERROR lines: "Attempting to rename entries in a static hashmap!", "Failed to manually remove old
// pair from map", "Failed to store pair with new key [%s] for map entry rename! Map may be
// corrupted!" (the entry is then in the chain but in no slot: lookups do not find it).
int vc_map_rename(vc_hashmap *map, const char *old_key, const char *new_key);
// Finds the first entry in slot order by its value. Without a match function an entry of size 0
// matches the same pointer, any other when its bytes equal the first bytes of value (which must be
// as long as the map's longest value); with one, the function decides on (value, what vc_map_fetch
// would hand out). *key (may be null) receives the entry's key, which the map owns.
int vc_map_find(const vc_hashmap *map, const void *value, vc_map_match_function match,
                const char **key);

// The typed operations keep the value in the entry. A typed fetch copies it out at its width and
// gives an ERROR line with the EINVAL text for an entry that holds a pointer.
int vc_map_store_int64(vc_hashmap *map, const char *key, int64_t value);
int vc_map_store_uint64(vc_hashmap *map, const char *key, uint64_t value);
int vc_map_store_int32(vc_hashmap *map, const char *key, int32_t value);
int vc_map_store_uint32(vc_hashmap *map, const char *key, uint32_t value);
int vc_map_store_double(vc_hashmap *map, const char *key, double value);
int vc_map_store_float(vc_hashmap *map, const char *key, float value);
int vc_map_store_bool(vc_hashmap *map, const char *key, bool value);
int vc_map_fetch_int64(const vc_hashmap *map, const char *key, int64_t *value);
int vc_map_fetch_uint64(const vc_hashmap *map, const char *key, uint64_t *value);
int vc_map_fetch_int32(const vc_hashmap *map, const char *key, int32_t *value);
int vc_map_fetch_uint32(const vc_hashmap *map, const char *key, uint32_t *value);
int vc_map_fetch_double(const vc_hashmap *map, const char *key, double *value);
int vc_map_fetch_float(const vc_hashmap *map, const char *key, float *value);
int vc_map_fetch_bool(const vc_hashmap *map, const char *key, bool *value);
int vc_map_update_int64(vc_hashmap *map, const char *key, int64_t value);
int vc_map_update_uint64(vc_hashmap *map, const char *key, uint64_t value);
int vc_map_update_int32(vc_hashmap *map, const char *key, int32_t value);
int vc_map_update_uint32(vc_hashmap *map, const char *key, uint32_t value);
int vc_map_update_double(vc_hashmap *map, const char *key, double value);
int vc_map_update_float(vc_hashmap *map, const char *key, float value);
int vc_map_update_bool(vc_hashmap *map, const char *key, bool value);

// --- The table ---

// Grows to the next bucket count of the prime table; also called by a store into a full bucket.
// ERROR lines: "Attempting to rehash a static hashmap!", "Map is at max size: %u buckets.", "Cannot
// determine new table size.", "Failed to store pair", "Failed to redistribute map", "Maps have
// different counts after redistribution: old:%d != new:%d.\n".
int vc_map_rehash(vc_hashmap *map);
// A new map with the same entries in the same order; 0 buckets or slots keep the source's number.
// A value that the source owns (its copy, or a pointer to be freed with free) is copied; any other
// is shared, along with its release function, and then belongs in one of the two maps only. A
// static map gives an ordinary one.
// ERROR lines, each with a null result: "Failed to create empty map for copying", "Failed to create
// map iterator", "Failed to copy map element [key = %s]".
vc_hashmap *vc_map_copy_ex(const vc_hashmap *map, uint32_t buckets, uint32_t slots);
// A copy in the smallest table that any smaller geometry ends up with (its own when none does);
// the source stays as it is and the caller owns both. Only the geometries are tried, on the hashes.
// ERROR lines: "Attempting to shrink a static hashmap!", the ENOMEM text for a failed trial or
// copy.
vc_hashmap *vc_map_shrink(const vc_hashmap *map);

// --- Insertion order ---

// Sorts the insertion order with a stable merge sort. compare gets the addresses of key fields when
// by_key is set, else of value fields (an inline value is there itself). A static map has nothing
// to sort: ERROR line with the EINVAL text.
int vc_map_sort(vc_hashmap *map, vc_map_compare_function compare, int by_key);
// The ends of the insertion order; key and value may be null. An empty map gives an ERROR line with
// the EINVAL text and 0.
int vc_map_get_first_entry(const vc_hashmap *map, const char **key, void **value);
int vc_map_get_last_entry(const vc_hashmap *map, const char **key, void **value);
// The entry at a zero-based position. ERROR lines: the EINVAL text for a position above the count;
// "Failed to iterate to requested index" for the count itself (kept on purpose); "Failed to create
// map iterator".
int vc_map_index(const vc_hashmap *map, uint32_t position, const char **key, void **value);

// A walk over the map; direction 1 swaps the roles of next and prev. Fresh, next gives the first
// entry and prev the last one. On entry e, next gives the one behind and prev the one before; at an
// end they give 0 and the walk stays on e. The peeks do not move; cur gives e, or 0 before the
// first step. key and value may be null. The entry that the walk stands on may be removed as long
// as cur is not asked for it afterwards; any other removal ends the walk's use.
vc_map_iterator *vc_map_iterator_start_ex(const vc_hashmap *map, int direction);
int vc_map_iterator_next(vc_map_iterator *iterator, const char **key, void **value);
int vc_map_iterator_prev(vc_map_iterator *iterator, const char **key, void **value);
int vc_map_iterator_peek_next(const vc_map_iterator *iterator, const char **key, void **value);
int vc_map_iterator_peek_prev(const vc_map_iterator *iterator, const char **key, void **value);
int vc_map_iterator_cur(const vc_map_iterator *iterator, const char **key, void **value);
void vc_map_iterator_free(vc_map_iterator *iterator); // free() itself will do; accepts null

// --- Files and printouts ---

// Writes the binary file, docs/formats/saved-maps.md. Without overwrite an existing file is left
// alone: 0 without a line. The file is written as "<path>.tmp", brought to stable storage, and
// takes the place in one step, with the owner and the rights of the old one: whatever happens,
// there is the old map or the new one.
// ERROR lines: EINVAL for a null path; "Cannot save complex maps!" (a release function other than
// free), "Key or value is too big, failed to save", "Table is too large for its entries, failed to
// save" (vc_map_load would not believe it), "Failed to write the data to the file during save:
// [%s]".
int vc_map_save(const vc_hashmap *map, const char *path, int overwrite);
// Reads such a file into a new map that the caller destroys, or null. A path that is not a file is
// null without a line. Nothing in the file is believed that does not fit the file and the table.
// The flags are the file's: a map saved as static is static again.
// ERROR lines: "Failed to grab contents of file [%s]: [%s]" (with "unkown error" without an errno),
// "Failed to create new map", "Corrupt map file [%s]".
vc_hashmap *vc_map_load(const char *path);
// Reads lines "key separator value # comment" in which both parts are trimmed; every line needs
// all but the comment. Values are stored as copies with their NUL.
//   maximum  stops after that many entries; 0 for no limit
//   map      receives the new map when the result is 1
// Returns 1, 0 for an empty file (no map), -1 on failure (without a line when path is not a file).
// ERROR lines: EINVAL for a null path, a null map or separator 0; "Failed to grab contents of file
// [%s]: [%s]"; "Invalid syntax in control file: [%s]" (no separator in the rest of the text);
// "Invalid syntax in control files: [%s]" (none on this line, or only in a comment; the extra
// letter is kept on purpose); "Failed to store key/value in map" (a key twice).
int vc_map_load_control_file(const char *path, uint32_t maximum, char separator, vc_hashmap **map);
// A listing of every slot for debugging: after three heading lines "%d. [%d][%d] %s:%08x = %p" with
// a number counted from 0, bucket, slot, key, hash and value; "<null>", 0 and null for a free slot.
// Pointers are printed as 0x and hex digits, null as (nil), on every system.
int vc_map_dump(const vc_hashmap *map, FILE *stream);
// Writes C source text that defines the map as a constant one. It needs a macro SLOT(hash, key,
// value, flags) where it is compiled. Keys are printed as they are; values are printed as text, for
// they are source expressions, and a null value is NULL. name null means "static_map". An inline
// value can't be printed: ERROR line with the EINVAL text, and nothing is written.
int gen_static_map_ex(FILE *stream, const vc_hashmap *map, const char *name);

} // namespace quillfence
