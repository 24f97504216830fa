#include "frozen_files.h"

#include <cstdlib>
#include <cstring>

#include "call_context.h"

namespace quillfence {

// Eight bytes at a time; paths that differ in their ends alone go to different slots.
static uint64_t hash_of(const char *text) {
    static constexpr uint64_t factor = 0x9E3779B97F4A7C15u;
    uint64_t hash = 0;
    uint64_t word = 0;
    size_t length = strlen(text);
    for (; length >= sizeof word; length -= sizeof word, text += sizeof word) {
        memcpy(&word, text, sizeof word);
        hash = (hash ^ word) * factor;
        hash ^= hash >> 29;
    }
    word = length;
    while (length--) {
        word = word << 8 | static_cast<unsigned char>(text[length]);
    }
    hash = (hash ^ word) * factor;
    return hash ^ hash >> 32;
}

// The slot of a path, or the empty one in which it would stand.
static size_t slot_of(const frozen_files *files, const char *path) {
    const size_t mask = files->slot_count - 1;
    size_t slot = hash_of(path) & mask;
    while (files->slots[slot] && strcmp(files->rows[files->slots[slot] - 1].path, path) != 0) {
        slot = (slot + 1) & mask;
    }
    return slot;
}

const frozen_file *find_frozen_file(const frozen_files *files, const char *path) {
    if (!files->row_count) {
        return nullptr;
    }
    const uint32_t number = files->slots[slot_of(files, path)];
    return number ? &files->rows[number - 1] : nullptr;
}

int index_frozen_files(frozen_files *files) {
    files->slot_count = 4;
    while (files->slot_count < 2 * files->row_count) {
        files->slot_count *= 2;
    }
    files->slots = static_cast<uint32_t *>(calloc(files->slot_count, sizeof(uint32_t)));
    if (!files->slots) {
        return 0;
    }
    for (size_t i = 0; i < files->row_count; ++i) {
        files->slots[slot_of(files, files->rows[i].path)] = static_cast<uint32_t>(i + 1);
    }
    return 1;
}

const frozen_file *frozen_file_of(const char *path) {
    const call_context *const context = current_call_context();
    return context && context->configuration ? find_frozen_file(context->configuration, path)
                                             : nullptr;
}

} // namespace quillfence
