#include "frozen_list.h"

#include <cstdlib>
#include <cstring>

#include "line_reader.h"
#include "plain_wildcards.h"
#include "vc_text.h"

namespace quillfence {

namespace {

enum class entry_kind : uint8_t { whole, tail, head, rest };

struct entry {
    uint32_t begin;  // of its line, in the bytes
    uint32_t line;   // its number
    uint16_t length; // of its line
    uint16_t blanks; // that lead the line
    uint32_t next;   // the next entry in the same slot, or the next of the rest; none at the end
};
constexpr uint32_t none = UINT32_MAX;

// Which lengths there are, of keys of one kind.
struct length_set {
    uint64_t words[(longest_list_line + 64) / 64];
    bool any;

    void add(size_t length) {
        words[length / 64] |= uint64_t{1} << length % 64;
        any = true;
    }
    bool has(size_t length) const {
        return words[length / 64] >> length % 64 & 1;
    }
};

// What an entry is found by.
struct entry_key {
    entry_kind kind;
    size_t length;
    uint64_t hash;
};

} // namespace

// In one block: this, the entries, the slots.
struct frozen_list {
    const char *bytes;
    list_matcher matcher;
    size_t size; // of the block
    length_set tails;
    length_set heads;
    uint32_t entry_count;
    uint32_t first_of_rest;
    uint32_t slot_mask;
    entry *entries;
    uint32_t *slots; // the first entry of each
};

// --- hashes ---

static constexpr uint64_t hash_begin[] = {0x243F6A8885A308D3u, 0x13198A2E03707344u,
                                          0xA4093822299F31D0u}; // by kind

static uint64_t hash_more(uint64_t hash, char c) {
    return (hash ^ static_cast<unsigned char>(to_lower(c))) * 0x9E3779B97F4A7C15u;
}

static size_t slot_of(const frozen_list *list, uint64_t hash) {
    return (hash ^ hash >> 32) & list->slot_mask;
}

static uint64_t hash_forward(entry_kind kind, const char *text, size_t length) {
    uint64_t hash = hash_begin[static_cast<size_t>(kind)];
    for (size_t i = 0; i < length; ++i) {
        hash = hash_more(hash, text[i]);
    }
    return hash;
}

// From the end on, so that the hashes of all tails of a value come in one walk.
static uint64_t hash_backward(const char *end, size_t length) {
    uint64_t hash = hash_begin[static_cast<size_t>(entry_kind::tail)];
    while (length--) {
        hash = hash_more(hash, *--end);
    }
    return hash;
}

// --- making ---

static entry_key key_of(const char *pattern, list_matcher matcher) {
    const size_t length = strlen(pattern);
    if (matcher == _stricmp || !strchr(pattern, '*')) {
        return {entry_kind::whole, length, hash_forward(entry_kind::whole, pattern, length)};
    }
    plain_wildcards parts;
    if (!take_apart(pattern, &parts) || !(parts.tail || parts.head)) {
        return {entry_kind::rest, 0, 0};
    }
    if (parts.tail) {
        return {entry_kind::tail, parts.tail, hash_backward(pattern + length, parts.tail)};
    }
    return {entry_kind::head, parts.head, hash_forward(entry_kind::head, pattern, parts.head)};
}

// Calls back for every line that is an entry, with its number and place.
template <class Callback>
static void for_entries(const char *bytes, uint64_t size, Callback callback) {
    line_reader in;
    begin_lines_of(&in, bytes, size, longest_list_line, true);
    uint32_t length = 0;
    uint32_t number = 0;
    while (const char *const line = next_line(&in, &length)) {
        ++number;
        const char *const pattern = pattern_of_line(line);
        if (!is_comment(pattern)) {
            const uint64_t behind = in.rest_size + in.end - static_cast<uint64_t>(line - in.piece);
            callback(entry{.begin = static_cast<uint32_t>(size - behind),
                           .line = number,
                           .length = static_cast<uint16_t>(length),
                           .blanks = static_cast<uint16_t>(pattern - line),
                           .next = none});
        }
    }
}

static uint32_t count_entries(const char *bytes, uint64_t size) {
    uint32_t count = 0;
    for_entries(bytes, size, [&count](const entry &) { ++count; });
    return count;
}

// A list with room for its entries; null without memory.
static frozen_list *new_list(uint32_t count) {
    size_t slots = 1;
    while (slots < count) {
        slots *= 2;
    }
    const size_t size = sizeof(frozen_list) + count * sizeof(entry) + slots * sizeof(uint32_t);
    auto *const list = static_cast<frozen_list *>(calloc(1, size));
    if (!list) {
        return nullptr;
    }
    list->size = size;
    list->slot_mask = static_cast<uint32_t>(slots - 1);
    list->first_of_rest = none;
    list->entries = reinterpret_cast<entry *>(list + 1);
    list->slots = reinterpret_cast<uint32_t *>(list->entries + count);
    memset(list->slots, 0xFF, slots * sizeof(uint32_t));
    return list;
}

// The pattern of an entry, as a text; buffer takes the whole line.
static const char *text_of(const frozen_list *list, const entry &of, char *buffer) {
    memcpy(buffer, list->bytes + of.begin, of.length);
    buffer[of.length] = '\0';
    return buffer + of.blanks;
}

// Puts an entry in front of those that are found with it.
static void link_entry(frozen_list *list, uint32_t index) {
    char text[longest_list_line + 1];
    entry &added = list->entries[index];
    const entry_key key = key_of(text_of(list, added, text), list->matcher);
    uint32_t *first = &list->first_of_rest;
    if (key.kind != entry_kind::rest) {
        first = &list->slots[slot_of(list, key.hash)];
    }
    if (key.kind == entry_kind::tail) {
        list->tails.add(key.length);
    } else if (key.kind == entry_kind::head) {
        list->heads.add(key.length);
    }
    added.next = *first;
    *first = index;
}

frozen_list *frozen_list_make(const char *bytes, uint64_t size, list_matcher matcher) {
    if (matcher != __wildcardmatch && matcher != _stricmp) {
        return nullptr;
    }
    frozen_list *const list = new_list(count_entries(bytes, size));
    if (!list) {
        return nullptr;
    }
    list->bytes = bytes;
    list->matcher = matcher;
    for_entries(bytes, size,
                [list](const entry &one) { list->entries[list->entry_count++] = one; });
    for (uint32_t index = list->entry_count; index-- > 0;) {
        link_entry(list, index);
    }
    return list;
}

void frozen_list_free(frozen_list *list) {
    free(list);
}

list_matcher frozen_list_matcher(const frozen_list *list) {
    return list->matcher;
}

size_t frozen_list_size(const frozen_list *list) {
    return list->size;
}

// --- looking ---

namespace {

// A value that is looked for, and the first entry that is known to match it.
struct search {
    const frozen_list *list;
    const char *value;
    size_t length;
    uint32_t best; // none: no entry yet
};

} // namespace

// Whether an indexed entry matches; logs nothing.
static bool matches_quietly(const search *s, const entry &of) {
    char text[longest_list_line + 1];
    const char *const pattern = text_of(s->list, of, text);
    if (s->list->matcher == _stricmp || !strchr(pattern, '*')) {
        return _stricmp(pattern, s->value) == 0;
    }
    return match_plain(pattern, s->value) == plain_answer::matches;
}

// Takes the first entry of a slot that matches and comes before the best.
static void look_in_slot(search *s, uint64_t hash) {
    uint32_t index = s->list->slots[slot_of(s->list, hash)];
    for (; index < s->best; index = s->list->entries[index].next) {
        if (matches_quietly(s, s->list->entries[index])) {
            s->best = index;
            return;
        }
    }
}

static void look_for_tails(search *s) {
    uint64_t hash = hash_begin[static_cast<size_t>(entry_kind::tail)];
    const char *at = s->value + s->length;
    for (size_t length = 1; length <= s->length && length <= longest_list_line; ++length) {
        hash = hash_more(hash, *--at);
        if (s->list->tails.has(length)) {
            look_in_slot(s, hash);
        }
    }
}

static void look_for_heads(search *s) {
    uint64_t hash = hash_begin[static_cast<size_t>(entry_kind::head)];
    for (size_t length = 1; length <= s->length && length <= longest_list_line; ++length) {
        hash = hash_more(hash, s->value[length - 1]);
        if (s->list->heads.has(length)) {
            look_in_slot(s, hash);
        }
    }
}

// Asks the matcher about the rest that comes before the best.
static void walk_rest(search *s) {
    char text[longest_list_line + 1];
    uint32_t index = s->list->first_of_rest;
    for (; index < s->best; index = s->list->entries[index].next) {
        if (s->list->matcher(text_of(s->list, s->list->entries[index], text), s->value) == 0) {
            s->best = index;
            return;
        }
    }
}

// The best entry once more, by the matcher itself, which writes its line about an indexed wildcard.
static bool confirm(const search *s, bool walked, frozen_line *found) {
    const entry &best = s->list->entries[s->best];
    found->pattern = text_of(s->list, best, found->text);
    found->line = best.line;
    found->entries = s->best + 1;
    return walked || s->list->matcher(found->pattern, s->value) == 0;
}

bool frozen_list_find(const frozen_list *list, const char *value, frozen_line *found) {
    search s = {.list = list, .value = value, .length = strlen(value), .best = none};
    look_in_slot(&s, hash_forward(entry_kind::whole, value, s.length));
    if (list->tails.any) {
        look_for_tails(&s);
    }
    if (list->heads.any) {
        look_for_heads(&s);
    }
    const uint32_t indexed = s.best;
    walk_rest(&s);
    if (s.best != none && confirm(&s, s.best != indexed, found)) {
        return true;
    }
    found->entries = list->entry_count;
    found->line = 0;
    found->pattern = nullptr;
    return false;
}

} // namespace quillfence
