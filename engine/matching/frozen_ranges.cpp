#include "frozen_ranges.h"

#include <algorithm>
#include <cstdlib>

#include "byte_cursor.h"
#include "quillfence-iprange-file.h"
#include "quillfence-iprange.h"
#include "vc_text.h"

namespace quillfence {

static constexpr uint32_t none = UINT32_MAX;

// A stretch of addresses, up to where the next one begins.
struct stretch {
    uint32_t begin;  // host byte order
    uint32_t record; // the first that contains it; none
};

// In one block: this and the stretches, of which the first begins at 0.0.0.0.
struct frozen_ranges {
    size_t size; // of the block
    uint32_t count;
    stretch *stretches;
};

namespace {

// The sound records of a file.
struct records {
    const unsigned char *bytes;
    uint32_t count;
};

struct ends {
    uint32_t low; // host byte order
    uint32_t high;
};

} // namespace

static uint32_t load_be32(const unsigned char *bytes) {
    return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
           static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}

static ends ends_of(const records &of, uint32_t index) {
    const unsigned char *const record = of.bytes + size_t{index} * range_record_size;
    return {load_be32(record), load_be32(record + 4)};
}

// Finds the records; false when some are missing or not sound.
static bool find_records(const unsigned char *bytes, uint64_t size, records *found) {
    if (size < range_header_size) {
        return false;
    }
    const ipr_file_header header = {load_le64(bytes), load_le32(bytes + 8), load_le32(bytes + 12)};
    *found = {bytes + range_header_size, header.count};
    const uint64_t there = size - range_header_size;
    // Of the last record its addresses are enough.
    if (!ipr_valid_file_header(&header) ||
        (header.count &&
         (header.count - 1) * uint64_t{range_record_size} + legacy_record_size > there)) {
        return false;
    }
    for (uint32_t i = 0; i < header.count; ++i) {
        const qf_ip_range range = __range_of_record(found->bytes + size_t{i} * range_record_size);
        if (!qf_valid_ip_range(&range)) {
            return false;
        }
    }
    return true;
}

// Where a stretch begins, in order and each once; returns how many.
static uint32_t find_beginnings(const records &of, stretch *stretches) {
    uint32_t count = 0;
    stretches[count++] = {0, none};
    for (uint32_t i = 0; i < of.count; ++i) {
        const ends range = ends_of(of, i);
        stretches[count++] = {range.low, none};
        if (range.high != UINT32_MAX) {
            stretches[count++] = {range.high + 1, none};
        }
    }
    const auto before = [](const stretch &a, const stretch &b) { return a.begin < b.begin; };
    const auto same = [](const stretch &a, const stretch &b) { return a.begin == b.begin; };
    std::sort(stretches, stretches + count, before);
    return static_cast<uint32_t>(std::unique(stretches, stretches + count, same) - stretches);
}

// The index of the stretch that holds an address.
static uint32_t stretch_of(const stretch *stretches, uint32_t count, uint32_t address) {
    const stretch *const behind =
        std::upper_bound(stretches, stretches + count, address,
                         [](uint32_t a, const stretch &b) { return a < b.begin; });
    return static_cast<uint32_t>(behind - stretches) - 1;
}

// From a stretch on, the first that has no record; next leads on from those that have one.
static uint32_t first_free(uint32_t *next, uint32_t index) {
    while (next[index] != index) {
        next[index] = next[next[index]];
        index = next[index];
    }
    return index;
}

// Gives each stretch the first record that contains it.
static void assign_records(const records &of, frozen_ranges *made, uint32_t *next) {
    for (uint32_t i = 0; i <= made->count; ++i) {
        next[i] = i;
    }
    for (uint32_t i = 0; i < of.count; ++i) {
        const ends range = ends_of(of, i);
        const uint32_t last = stretch_of(made->stretches, made->count, range.high);
        uint32_t at = first_free(next, stretch_of(made->stretches, made->count, range.low));
        while (at <= last) {
            made->stretches[at].record = i;
            next[at] = at + 1;
            at = first_free(next, at);
        }
    }
}

// A form with room for all stretches; null without memory.
static frozen_ranges *new_ranges(size_t most) {
    const size_t size = sizeof(frozen_ranges) + most * sizeof(stretch);
    auto *const made = static_cast<frozen_ranges *>(malloc(size));
    if (made) {
        made->size = size;
        made->stretches = reinterpret_cast<stretch *>(made + 1);
    }
    return made;
}

bool frozen_ranges_make(const char *bytes, uint64_t size, frozen_ranges **made) {
    *made = nullptr;
    records found;
    if (!find_records(reinterpret_cast<const unsigned char *>(bytes), size, &found)) {
        return true;
    }
    const size_t most = 2 * size_t{found.count} + 1;
    const heap_ptr<uint32_t> next(static_cast<uint32_t *>(calloc(most + 1, sizeof(uint32_t))));
    frozen_ranges *const ranges = next ? new_ranges(most) : nullptr;
    if (!ranges) {
        return false;
    }
    ranges->count = find_beginnings(found, ranges->stretches);
    assign_records(found, ranges, next.get());
    *made = ranges;
    return true;
}

void frozen_ranges_free(frozen_ranges *ranges) {
    free(ranges);
}

size_t frozen_ranges_size(const frozen_ranges *ranges) {
    return ranges->size;
}

bool frozen_ranges_find(const frozen_ranges *ranges, uint32_t address, uint32_t *record) {
    unsigned char octets[4];
    memcpy(octets, &address, sizeof octets);
    *record =
        ranges->stretches[stretch_of(ranges->stretches, ranges->count, load_be32(octets))].record;
    return *record != none;
}

} // namespace quillfence
