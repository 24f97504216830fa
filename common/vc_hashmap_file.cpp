// The hash map in files: the binary form, and control files.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>

#include "byte_cursor.h"
#include "platform/edit.h"
#include "platform/error_numbers.h"
#include "vc_file.h"
#include "vc_hashmap_internal.h"
#include "vc_log.h"
#include "vc_stringutils.h"
#include "vc_text.h"
#include "vc_w32.h"

namespace quillfence {

static constexpr char module_name[] = "vc_hashmap";

static constexpr uint64_t header_size = 28;
static constexpr uint64_t record_size = 20; // without the key and the value
// An empty map may have a table, and so may a file of a header alone: of up to 64 MiB of slots. A
// larger one needs entries; a header that claims it without them is damaged.
static constexpr uint64_t largest_bare_table = uint64_t{1} << 23;
static constexpr uint64_t inline_size = 8;

// A whole file as a new string; null after the operation's ERROR line.
static char *file_contents(const char *operation, const char *path, uint64_t *size) {
    errno = 0;
    char *contents = vc_existing_contents(path, size);
    if (!contents) {
        QF_ERROR_AS(operation, "Failed to grab contents of file [%s]: [%s]", path,
                    errno ? strerror(errno) : "unkown error");
    }
    return contents;
}

// Whether so large a table may belong to so few entries.
static bool believable(uint64_t buckets, uint64_t slots, uint64_t entries) {
    const uint64_t all_slots = buckets * slots;
    return all_slots <= largest_bare_table || all_slots / hashmap::most_slots_an_entry <= entries;
}

// --- Saving ---

// The value's length in a file: a null value has no bytes.
static uint64_t saved_length(const hash_pair_t *pair) {
    return hashmap::value_bytes(pair) ? pair->size : 0;
}

// Flags of a record: values that do not lie in the entry count as owned.
static uint32_t saved_flags(const hash_pair_t *pair) {
    const bool pointed_to = !hashmap::is_inline(pair) && saved_length(pair) > 0;
    return (pair->flags & ~MAP_PAIR_INLINE) | (pointed_to ? MAP_PAIR_OWNED : 0);
}

// The bytes that the file will take; 0 after an ERROR line when the map can't be saved.
static uint64_t saved_size(const char *operation, const vc_hashmap *map) {
    uint64_t total = header_size;
    for (uint32_t slot = 0; slot < map->map_size; ++slot) {
        const hash_pair_t *pair = map->const_pairs[slot];
        if (!pair) {
            continue;
        }
        if (pair->freefn && pair->freefn != free) {
            QF_ERROR_AS(operation, "Cannot save complex maps!");
            return 0;
        }
        const uint64_t key_length = strlen(pair->key);
        const uint64_t value_length = saved_length(pair);
        const bool fits = key_length <= UINT32_MAX && value_length <= UINT32_MAX;
        total += fits ? record_size + key_length + value_length : 0;
        if (!fits || total > UINT32_MAX) { // one write takes no more
            QF_ERROR_AS(operation, "Key or value is too big, failed to save");
            return 0;
        }
    }
    return total;
}

// An entry and where it is.
struct placed_pair {
    const hash_pair_t *pair;
    uint32_t slot;
};

static bool lies_before(const placed_pair &one, const placed_pair &other) {
    return std::less<const hash_pair_t *>()(one.pair, other.pair);
}

// The entries of all slots, by address.
struct pair_places {
    heap_ptr<placed_pair> first;
    placed_pair *last;
};

static bool find_places(const vc_hashmap *map, pair_places *places) {
    const hash_pair_t *const *const slots = map->const_pairs;
    const auto free_slots = std::count(slots, slots + map->map_size, nullptr);
    const size_t room = map->map_size - static_cast<size_t>(free_slots) + 1;
    places->first.reset(static_cast<placed_pair *>(calloc(room, sizeof(placed_pair))));
    if (!places->first) {
        return false;
    }
    places->last = places->first.get();
    for (uint32_t slot = 0; slot < map->map_size; ++slot) {
        if (slots[slot]) {
            *places->last++ = {slots[slot], slot};
        }
    }
    std::sort(places->first.get(), places->last, lies_before);
    return true;
}

// The slot of an entry; none when it is nowhere, as after a failed rename. A loaded file may have
// put it into a foreign bucket.
static const uint32_t *slot_index(const pair_places &places, const hash_pair_t *pair) {
    const placed_pair *const found =
        std::lower_bound(places.first.get(), places.last, placed_pair{pair, 0}, lies_before);
    return found != places.last && found->pair == pair ? &found->slot : nullptr;
}

// The chain as slots.
struct slot_chain {
    uint32_t first;
    uint32_t last;
    heap_ptr<uint32_t> next; // by slot; 0 for the last entry
};

static bool make_slot_chain(const vc_hashmap *map, slot_chain *made) {
    const size_t slots = size_t{map->map_size} + 1;
    *made = {0, 0, heap_ptr<uint32_t>(static_cast<uint32_t *>(calloc(slots, sizeof(uint32_t))))};
    pair_places places = {};
    if (!made->next || !find_places(map, &places)) {
        return false;
    }
    bool first = true;
    vc_map_iterator entries = hashmap::walk(map);
    while (const hash_pair_t *pair = hashmap::next_entry(&entries)) {
        const uint32_t *const slot = slot_index(places, pair);
        if (!slot) {
            continue;
        }
        (first ? made->first : made->next.get()[made->last]) = *slot;
        made->last = *slot;
        first = false;
    }
    return true;
}

static unsigned char *put_u32(unsigned char *out, uint32_t value) {
    store_le32(out, value);
    return out + 4;
}

static unsigned char *put_bytes(unsigned char *out, const void *bytes, size_t count) {
    if (count) {
        memcpy(out, bytes, count);
    }
    return out + count;
}

static void put_map(unsigned char *out, const vc_hashmap *map, const slot_chain &chain) {
    for (const uint32_t number : {map->flags, map->num_buckets, map->bucket_size, map->map_size,
                                  map->num_pairs, chain.first, chain.last}) {
        out = put_u32(out, number);
    }
    for (uint32_t slot = 0; slot < map->map_size; ++slot) {
        const hash_pair_t *pair = map->const_pairs[slot];
        if (!pair) {
            continue;
        }
        const size_t key_length = strlen(pair->key);
        const size_t value_length = saved_length(pair);
        for (const uint32_t number :
             {slot, chain.next.get()[slot], saved_flags(pair), static_cast<uint32_t>(key_length),
              static_cast<uint32_t>(value_length)}) {
            out = put_u32(out, number);
        }
        out = put_bytes(out, pair->key, key_length);
        out = put_bytes(out, hashmap::value_bytes(pair), value_length);
    }
}

static int write_file(const char *operation, const char *path, const void *bytes, uint32_t count) {
    platform::replacement fresh;
    if (!vc_begin_replacement(path, ".tmp", &fresh)) {
        return 0;
    }
    errno = 0;
    const int written = vc_write(fresh.lock.file, bytes, count);
    const uint32_t error = written ? platform::replacement_commit(&fresh, nullptr) : 0;
    if (!written || error) {
        QF_ERROR_AS(operation, "Failed to write the data to the file during save: [%s]",
                    strerror(error ? platform::errno_of(error) : errno));
    }
    platform::replacement_end(&fresh);
    return written && !error;
}

int vc_map_save(const vc_hashmap *map, const char *path, int overwrite) {
    if (!map || !path) {
        QF_EINVAL();
        return 0;
    }
    if (!overwrite && vc_file_exists_ex(path, vc_type_file)) {
        return 0;
    }
    if (!believable(map->num_buckets, map->bucket_size, map->num_pairs)) {
        QF_ERROR("Table is too large for its entries, failed to save");
        return 0;
    }
    const uint64_t size = saved_size(__func__, map);
    if (!size) {
        return 0;
    }
    slot_chain chain;
    const heap_ptr<unsigned char> bytes(static_cast<unsigned char *>(malloc(size)));
    if (!bytes || !make_slot_chain(map, &chain)) {
        QF_ENOMEM();
        return 0;
    }
    put_map(bytes.get(), map, chain);
    return write_file(__func__, path, bytes.get(), static_cast<uint32_t>(size));
}

// --- Loading ---

namespace {

struct file_header {
    uint32_t flags;
    uint32_t buckets;
    uint32_t slots;
    uint32_t total; // not used
    uint32_t entries;
    uint32_t first;
    uint32_t last;
};

struct loaded_entry {
    hash_pair_t *pair;
    uint32_t slot;
    uint32_t next_slot;
};

// A map while it is being read: its entries in the order of the file, not chained yet.
struct loading {
    const char *path;
    file_header header;
    vc_hashmap *map;
    heap_ptr<loaded_entry> entries;
    uint32_t count;
};

} // namespace

static file_header take_header(byte_reader *in) {
    file_header header;
    for (uint32_t *field : {&header.flags, &header.buckets, &header.slots, &header.total,
                            &header.entries, &header.first, &header.last}) {
        *field = take_le32(in);
    }
    return header;
}

static bool corrupt(const char *operation, const loading &of) {
    QF_ERROR_AS(operation, "Corrupt map file [%s]", of.path);
    return false;
}

// The value of a record: bytes of the file, to be copied into the entry or into a block.
static hashmap::pair_value value_of_record(const unsigned char *bytes, uint32_t length,
                                           uint32_t flags) {
    hashmap::pair_value value = {nullptr, length, flags & ~MAP_PAIR_INLINE, nullptr};
    if (length > inline_size || (flags & MAP_PAIR_OWNED)) {
        value.value = const_cast<unsigned char *>(bytes); // only read from
        value.flags |= MAP_PAIR_OWNED;
        value.freefn = free;
    } else if (length) {
        memcpy(&value.value, bytes, length);
        value.flags |= MAP_PAIR_INLINE;
    }
    return value;
}

static bool take_entry(const char *operation, byte_reader *in, loading *into) {
    const uint32_t slot = take_le32(in);
    const uint32_t next_slot = take_le32(in);
    const uint32_t flags = take_le32(in);
    const uint32_t key_length = take_le32(in);
    const uint32_t value_length = take_le32(in);
    const unsigned char *key = take_bytes(in, key_length);
    const unsigned char *value = take_bytes(in, value_length);
    if (in->failed || slot >= into->map->map_size || into->map->pairs[slot] ||
        memchr(key, '\0', key_length)) {
        return corrupt(operation, *into);
    }
    hash_pair_t *pair = hashmap::make_pair(reinterpret_cast<const char *>(key), key_length,
                                           value_of_record(value, value_length, flags));
    if (!pair) {
        QF_ERRNO_AS(operation, ENOMEM);
        return false;
    }
    into->map->pairs[slot] = pair;
    into->entries.get()[into->count++] = {pair, slot, next_slot};
    return true;
}

// Links the entries by their slots. The last one leads nowhere, so that a walk from the first which
// reaches it after as many steps as there are other entries has met each of them once.
static bool link_entries(const char *operation, loading *of) {
    vc_hashmap *map = of->map;
    const file_header &header = of->header;
    map->flags = header.flags;
    if (!of->count) {
        return true;
    }
    const auto entry_in = [map](uint32_t slot) {
        return slot < map->map_size ? map->pairs[slot] : nullptr;
    };
    for (uint32_t i = 0; i < of->count; ++i) {
        const loaded_entry &entry = of->entries.get()[i];
        if (entry.slot == header.last) {
            continue;
        }
        hash_pair_t *next = entry_in(entry.next_slot);
        if (!next) {
            return corrupt(operation, *of);
        }
        entry.pair->next = next;
        next->prev = entry.pair;
    }
    hash_pair_t *first = entry_in(header.first);
    hash_pair_t *reached = first;
    for (uint32_t steps = 1; reached && steps < of->count; ++steps) {
        reached = reached->next;
    }
    if (!reached || reached != entry_in(header.last)) {
        return corrupt(operation, *of);
    }
    map->first = first;
    map->last = reached;
    map->num_pairs = of->count;
    return true;
}

static bool take_map(const char *operation, byte_reader *in, loading *into) {
    into->header = take_header(in);
    const file_header &header = into->header;
    const uint64_t room = (in->size - in->offset) / record_size;
    if (in->failed || header.entries > room ||
        !believable(header.buckets, header.slots, header.entries)) {
        return corrupt(operation, *into);
    }
    into->map = vc_map_create(header.buckets, header.slots);
    if (!into->map) {
        QF_ERROR_AS(operation, "Failed to create new map");
        return false;
    }
    into->entries.reset(
        static_cast<loaded_entry *>(calloc(size_t{header.entries} + 1, sizeof(loaded_entry))));
    if (!into->entries) {
        QF_ERRNO_AS(operation, ENOMEM);
        return false;
    }
    for (uint32_t i = 0; i < header.entries; ++i) {
        if (!take_entry(operation, in, into)) {
            return false;
        }
    }
    return link_entries(operation, into);
}

vc_hashmap *vc_map_load(const char *path) {
    if (!path) {
        QF_EINVAL();
        return nullptr;
    }
    if (!vc_file_exists_ex(path, vc_type_file)) {
        return nullptr;
    }
    uint64_t size = 0;
    const heap_string contents(file_contents(__func__, path, &size));
    if (!contents) {
        return nullptr;
    }
    loading file = {path, {}, nullptr, nullptr, 0};
    byte_reader in = byte_reader_of(contents.get(), size);
    if (take_map(__func__, &in, &file)) {
        return file.map;
    }
    for (uint32_t i = 0; i < file.count; ++i) {
        hashmap::release_pair(file.entries.get()[i].pair);
    }
    if (file.map) {
        hashmap::free_table(file.map);
    }
    return nullptr;
}

// --- Control files ---

// A trimmed copy of the text before end; null after an ERROR line without memory.
static char *trimmed_copy(const char *operation, const char *text, const char *end) {
    char *copy = vc_strndup(text, static_cast<size_t>(end - text));
    if (!copy) {
        QF_ERRNO_AS(operation, ENOMEM);
    } else if (!vc_trim(&copy)) {
        free(copy);
        copy = nullptr;
    }
    return copy;
}

// Takes one line, which ends before end, into the map.
static bool take_line(const char *operation, const char *path, const char *line, const char *end,
                      char separator, vc_hashmap *map) {
    const char *middle = strchr(line, separator);
    if (!middle) {
        QF_ERROR_AS(operation, "Invalid syntax in control file: [%s]", path);
        return false;
    }
    const size_t length = static_cast<size_t>(end - line);
    const char *comment = static_cast<const char *>(memchr(line, '#', length));
    if (middle >= end || (comment && comment <= middle)) {
        // The letter more than in the message above is kept on purpose.
        QF_ERROR_AS(operation, "Invalid syntax in control files: [%s]", path);
        return false;
    }
    const heap_string key(trimmed_copy(operation, line, middle));
    const heap_string value(key ? trimmed_copy(operation, middle + 1, comment ? comment : end)
                                : nullptr);
    if (!value) {
        return false;
    }
    if (!vc_map_store_ex(map, key.get(), value.get(), strlen(value.get()) + 1, 1, nullptr)) {
        QF_ERROR_AS(operation, "Failed to store key/value in map");
        return false;
    }
    return true;
}

static bool take_lines(const char *operation, const char *path, const char *text, uint32_t maximum,
                       char separator, vc_hashmap *map) {
    for (const char *line = text;;) {
        const char *end = line + strcspn(line, "\n");
        if (!take_line(operation, path, line, end, separator, map)) {
            return false;
        }
        if (!*end || !end[1] || (maximum && vc_map_count(map) >= maximum)) {
            return true;
        }
        line = end + 1;
    }
}

int vc_map_load_control_file(const char *path, uint32_t maximum, char separator, vc_hashmap **map) {
    if (!path || !separator || !map) {
        QF_EINVAL();
        return -1;
    }
    if (!vc_file_exists_ex(path, vc_type_file)) {
        return -1;
    }
    uint64_t size = 0;
    const heap_string text(file_contents(__func__, path, &size));
    if (!text) {
        return -1;
    }
    if (!size) {
        return 0;
    }
    vc_hashmap *loaded = vc_map_create(0, 0);
    if (!loaded) {
        return -1;
    }
    if (!take_lines(__func__, path, text.get(), maximum, separator, loaded)) {
        vc_map_destroy(loaded);
        return -1;
    }
    *map = loaded;
    return 1;
}

} // namespace quillfence
