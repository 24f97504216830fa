#include "frozen_patterns.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

#include "byte_cursor.h"
#include "tiny_rex_storage.h"
#include "vc_text.h"

namespace quillfence {

static constexpr uint32_t none = UINT32_MAX;
static constexpr size_t longest_ending = 255; // more of a name is not looked at

namespace {

// A block of the file.
struct block {
    uint32_t nodes; // where they begin
    int32_t count;
    uint32_t next;      // in the same slot, or of the rest; none at the end
    uint64_t hash;      // of its ending
    character_set last; // of the rest: the characters that a name can end in
};

} // namespace

// In one block of memory: this, the blocks, the slots.
struct frozen_patterns {
    const char *bytes;
    size_t size;
    uint64_t endings[(longest_ending + 64) / 64]; // which lengths there are
    uint32_t count;
    uint32_t first_of_rest;
    uint32_t slot_mask;
    block *blocks;
    uint32_t *slots; // the first block of each
};

static uint64_t hash_more(uint64_t hash, char c) {
    return (hash ^ static_cast<unsigned char>(to_lower(c))) * 0x9E3779B97F4A7C15u;
}

static size_t slot_of(const frozen_patterns *patterns, uint64_t hash) {
    return (hash ^ hash >> 32) & patterns->slot_mask;
}

// --- making ---

// Calls back for every block with its offset and count; false when one is not sound.
template <class Callback>
static bool for_blocks(const char *bytes, uint64_t size, Callback callback) {
    uint64_t at = sizeof trs_magic;
    if (size < at || load_le32(bytes) != trs_magic) {
        return false;
    }
    while (size - at >= sizeof(int32_t)) { // fewer bytes at the end are no block
        const auto count = static_cast<int32_t>(load_le32(bytes + at));
        at += sizeof count;
        if (count <= 0 || count > trs_max_nodes ||
            size - at < static_cast<uint32_t>(count) * sizeof(TRexNode)) {
            return false;
        }
        callback(static_cast<uint32_t>(at), count);
        at += static_cast<uint32_t>(count) * sizeof(TRexNode);
    }
    return true;
}

static frozen_patterns *new_patterns(uint32_t count) {
    size_t slots = 1;
    while (slots < 2 * size_t{count}) {
        slots *= 2;
    }
    const size_t size = sizeof(frozen_patterns) + count * sizeof(block) + slots * sizeof(uint32_t);
    auto *const made = static_cast<frozen_patterns *>(calloc(1, size));
    if (!made) {
        return nullptr;
    }
    made->size = size;
    made->slot_mask = static_cast<uint32_t>(slots - 1);
    made->first_of_rest = none;
    made->blocks = reinterpret_cast<block *>(made + 1);
    made->slots = reinterpret_cast<uint32_t *>(made->blocks + count);
    memset(made->slots, 0xFF, slots * sizeof(uint32_t));
    return made;
}

void frozen_patterns_lend(const frozen_patterns *patterns, uint32_t index, TRex *expression) {
    const block &of = patterns->blocks[index];
    // The matcher reads them only.
    expression->nodes =
        reinterpret_cast<TRexNode *>(const_cast<char *>(patterns->bytes + of.nodes));
    expression->nallocated = of.count;
}

// Puts a block in front of those that are found with it.
static void link_block(frozen_patterns *patterns, uint32_t index) {
    TRex expression = {};
    frozen_patterns_lend(patterns, index, &expression);
    char ending[longest_ending];
    const size_t length = required_ending(&expression, ending, sizeof ending);
    uint32_t *first = &patterns->first_of_rest;
    block &added = patterns->blocks[index];
    if (length) {
        for (size_t i = length; i-- > 0;) {
            added.hash = hash_more(added.hash, ending[i]);
        }
        patterns->endings[length / 64] |= uint64_t{1} << length % 64;
        first = &patterns->slots[slot_of(patterns, added.hash)];
    } else {
        possible_last_characters(&expression, &added.last);
    }
    added.next = *first;
    *first = index;
}

bool frozen_patterns_make(const char *bytes, uint64_t size, frozen_patterns **made) {
    *made = nullptr;
    uint32_t count = 0;
    if (std::endian::native != std::endian::little || // the nodes are used where they lie
        !for_blocks(bytes, size, [&count](uint32_t, int32_t) { ++count; })) {
        return true;
    }
    frozen_patterns *const patterns = new_patterns(count);
    if (!patterns) {
        return false;
    }
    patterns->bytes = bytes;
    for_blocks(bytes, size, [patterns](uint32_t at, int32_t nodes) {
        patterns->blocks[patterns->count++] = {at, nodes, none, 0, {}};
    });
    for (uint32_t index = count; index-- > 0;) {
        link_block(patterns, index);
    }
    *made = patterns;
    return true;
}

void frozen_patterns_free(frozen_patterns *patterns) {
    free(patterns);
}

size_t frozen_patterns_size(const frozen_patterns *patterns) {
    return patterns->size;
}

uint32_t frozen_patterns_count(const frozen_patterns *patterns) {
    return patterns->count;
}

// --- walking ---

// Adds the blocks with an ending. One with another of the same hash does no harm: the matcher says
// no to it.
static void add_slot(pattern_walk *walk, uint64_t hash) {
    const frozen_patterns *const patterns = walk->patterns;
    uint32_t index = patterns->slots[slot_of(patterns, hash)];
    for (; index != none && !walk->all; index = patterns->blocks[index].next) {
        if (patterns->blocks[index].hash != hash) {
            continue;
        }
        if (walk->found_count == most_candidates) {
            walk->all = true;
        } else {
            walk->found[walk->found_count++] = index;
        }
    }
}

// The first block of the rest, from one on, that the name's last character does not rule out.
static uint32_t next_of_rest(const pattern_walk *walk, uint32_t index) {
    const block *const blocks = walk->patterns->blocks;
    while (index != none && walk->last && !blocks[index].last.has(*walk->last)) {
        index = blocks[index].next;
    }
    return index;
}

void frozen_patterns_begin(const frozen_patterns *patterns, const char *name, const char *end,
                           pattern_walk *walk) {
    walk->patterns = patterns;
    walk->index = none;
    walk->all = false;
    walk->next_of_all = 0;
    walk->last = name < end ? end - 1 : nullptr;
    walk->next_of_rest = next_of_rest(walk, patterns->first_of_rest);
    walk->at = walk->found_count = 0;
    const auto longest = std::min(static_cast<size_t>(end - name), longest_ending);
    uint64_t hash = 0;
    for (size_t length = 1; length <= longest && !walk->all; ++length) {
        hash = hash_more(hash, *--end);
        if (patterns->endings[length / 64] >> length % 64 & 1) {
            add_slot(walk, hash);
        }
    }
    uint32_t *const found_end = walk->found + walk->found_count;
    std::sort(walk->found, found_end);
    walk->found_count = static_cast<uint32_t>(std::unique(walk->found, found_end) - walk->found);
}

static uint32_t next_index(pattern_walk *walk) {
    const frozen_patterns *const patterns = walk->patterns;
    if (walk->all) {
        return walk->next_of_all < patterns->count ? walk->next_of_all++ : none;
    }
    const uint32_t found = walk->at < walk->found_count ? walk->found[walk->at] : none;
    const uint32_t rest = walk->next_of_rest;
    if (found < rest) {
        ++walk->at;
        return found;
    }
    if (rest != none) {
        walk->next_of_rest = next_of_rest(walk, patterns->blocks[rest].next);
    }
    return rest;
}

bool frozen_patterns_next(pattern_walk *walk, TRex *expression) {
    walk->index = next_index(walk);
    if (walk->index == none) {
        return false;
    }
    frozen_patterns_lend(walk->patterns, walk->index, expression);
    expression->end_fits = !walk->all;
    return true;
}

} // namespace quillfence
