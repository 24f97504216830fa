#include "block_map.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <map>
#include <string_view>
#include <unordered_map>

#include "byte_cursor.h"
#include "data_program.h"

namespace quillfence::data_tool {

static constexpr uint32_t nothing_listed = 0;
static constexpr uint32_t everything_listed = 0xFFFFFFFF;
static constexpr size_t table_size = 1024;
static constexpr uint64_t max_offset = INT32_MAX; // the engine seeks with signed integers

// The largest map has all tables and all bitmaps.
static_assert(table_size + 256 * table_size + 65536 * bitmap_size < max_offset);

// --- Writing ---

namespace {

// An entry while the places in the file are not known: 0, everything_listed, or number + 1 of a
// table or bitmap.
using numbered_table = std::array<uint32_t, 256>;

struct layout {
    numbered_table level1;
    std::vector<numbered_table> tables;
    std::vector<uint32_t> bitmaps; // the first /16 with this bitmap
    uint64_t addresses = 0;
};

} // namespace

static uint64_t count_bits(const bitmap &bits) {
    uint64_t count = 0;
    for (size_t at = 0; at < bits.size(); at += sizeof(uint64_t)) {
        count += static_cast<uint64_t>(std::popcount(load_le64(bits.data() + at)));
    }
    return count;
}

namespace {

// Finds bitmaps that have been met before. Only their hashes and where they came from are kept.
class bitmap_numbers {
  public:
    bitmap_numbers(const address_set &addresses, std::vector<uint32_t> *met)
        : addresses_(addresses), met_(met) {}

    uint32_t number_of(const bitmap &bits, uint32_t network) {
        const size_t hash = std::hash<std::string_view>()(
            {reinterpret_cast<const char *>(bits.data()), bits.size()});
        const auto [begin, end] = numbers_.equal_range(hash);
        for (auto known = begin; known != end; ++known) {
            bitmap other;
            addresses_.network((*met_)[known->second]).bits(&other);
            if (other == bits) {
                return known->second;
            }
        }
        const auto number = static_cast<uint32_t>(met_->size());
        met_->push_back(network);
        numbers_.emplace(hash, number);
        return number;
    }

  private:
    const address_set &addresses_;
    std::vector<uint32_t> *met_;
    std::unordered_multimap<size_t, uint32_t> numbers_;
};

} // namespace

static numbered_table table_of(const address_set &addresses, uint32_t upper,
                               bitmap_numbers *numbers, uint64_t *count) {
    numbered_table table;
    bitmap bits;
    for (uint32_t b = 0; b < 256; ++b) {
        const uint32_t network = upper << 8 | b;
        switch (addresses.network(network).bits(&bits)) {
        case coverage::nothing:
            table[b] = nothing_listed;
            break;
        case coverage::everything:
            table[b] = everything_listed;
            *count += 65536;
            break;
        case coverage::some:
            table[b] = numbers->number_of(bits, network) + 1;
            *count += count_bits(bits);
            break;
        }
    }
    return table;
}

static bool is_all(const numbered_table &table, uint32_t value) {
    return std::all_of(table.begin(), table.end(), [=](uint32_t entry) { return entry == value; });
}

static layout lay_out(const address_set &addresses) {
    layout map;
    bitmap_numbers numbers(addresses, &map.bitmaps);
    std::map<numbered_table, uint32_t> known;
    for (uint32_t a = 0; a < 256; ++a) {
        const numbered_table table = table_of(addresses, a, &numbers, &map.addresses);
        if (is_all(table, nothing_listed) || is_all(table, everything_listed)) {
            map.level1[a] = table[0];
            continue;
        }
        const auto [place, added] =
            known.try_emplace(table, static_cast<uint32_t>(map.tables.size()));
        if (added) {
            map.tables.push_back(table);
        }
        map.level1[a] = place->second + 1;
    }
    return map;
}

// A table with numbers turned into offsets: `size` bytes each, from `start` on.
static std::array<uint8_t, table_size> table_bytes(const numbered_table &table, size_t start,
                                                   size_t size) {
    std::array<uint8_t, table_size> bytes;
    for (size_t i = 0; i < table.size(); ++i) {
        const bool decides = table[i] == nothing_listed || table[i] == everything_listed;
        const uint32_t value =
            decides ? table[i] : static_cast<uint32_t>(start + (table[i] - 1) * size);
        store_le32(bytes.data() + i * 4, value);
    }
    return bytes;
}

map_size write_block_map(const address_set &addresses,
                         const std::function<void(const void *, size_t)> &write) {
    const layout map = lay_out(addresses);
    const size_t first_bitmap = table_size * (1 + map.tables.size());
    write(table_bytes(map.level1, table_size, table_size).data(), table_size);
    for (const numbered_table &table : map.tables) {
        write(table_bytes(table, first_bitmap, bitmap_size).data(), table_size);
    }
    for (const uint32_t network : map.bitmaps) {
        bitmap bits;
        addresses.network(network).bits(&bits);
        write(bits.data(), bits.size());
    }
    return {static_cast<uint32_t>(map.tables.size()), static_cast<uint32_t>(map.bitmaps.size()),
            first_bitmap + map.bitmaps.size() * bitmap_size, map.addresses};
}

// --- Reading ---

block_map::block_map(const std::string &path) : path_(path) {
    uint32_t error = file_.open(path);
    error = error ? error : file_.size(&size_);
    if (error) {
        throw failure(file_error(path, error));
    }
    level1_ = read_table(0);
}

// The bytes lie within the file.
void block_map::read(uint64_t offset, void *bytes, size_t size) const {
    size_t got = 0;
    if (const uint32_t error = file_.read_at(offset, bytes, size, &got)) {
        throw failure(file_error(path_, error));
    }
    if (got != size) {
        throw failure(path_ + ": has become shorter meanwhile");
    }
}

block_map::table block_map::read_table(uint64_t offset) const {
    uint8_t bytes[table_size] = {};
    // What is missing of the first table, or a cut entry, says nothing.
    const uint64_t there = std::min<uint64_t>(table_size, size_ - offset) / 4 * 4;
    read(offset, bytes, static_cast<size_t>(there));
    table values;
    for (size_t i = 0; i < values.size(); ++i) {
        values[i] = load_le32(bytes + i * 4);
    }
    return values;
}

block_map::entry block_map::judge(uint32_t value, size_t below, const std::string &what) const {
    if (value == nothing_listed) {
        return {coverage::nothing, ""};
    }
    if (value == everything_listed) {
        return {coverage::everything, ""};
    }
    if (value > max_offset || value + below > size_) {
        return {coverage::nothing, "the entry of " + what + " points to offset " +
                                       std::to_string(value) + ", and the " +
                                       std::to_string(below) +
                                       " bytes that should be there end "
                                       "behind the file's " +
                                       std::to_string(size_)};
    }
    return {coverage::some, ""};
}

// Whether the bitmap of a /16 says the same, `listed`, of all addresses of a network in it.
static bool says_of_all(const bitmap &bits, bool listed, uint32_t address, unsigned prefix) {
    const uint32_t count = 1U << (32 - prefix);
    const uint32_t first = address & 0xFFFF & ~(count - 1);
    for (uint32_t at = first; at < first + count; ++at) {
        if (((bits[at / 8] & 0x80 >> at % 8) != 0) != listed) {
            return false;
        }
    }
    return true;
}

static map_answer answer_of_bitmap(const bitmap &bits, uint32_t address) {
    const bool listed = (bits[(address & 0xFFFF) / 8] & 0x80 >> address % 8) != 0;
    unsigned prefix = 32;
    while (prefix > 16 && says_of_all(bits, listed, address, prefix - 1)) {
        --prefix;
    }
    return {listed, 3, prefix};
}

map_answer block_map::ask(uint32_t address) const {
    const entry upper =
        judge(level1_[address >> 24], table_size, network_text(address & 0xFF000000, 8));
    if (upper.covers != coverage::some) {
        return {upper.covers == coverage::everything, 1, 8, upper.damage};
    }
    const table level2 = read_table(level1_[address >> 24]);
    const uint32_t place = level2[address >> 16 & 255];
    const entry lower = judge(place, bitmap_size, network_text(address & 0xFFFF0000, 16));
    if (lower.covers != coverage::some) {
        return {lower.covers == coverage::everything, 2, 16, lower.damage};
    }
    bitmap bits;
    read(place, bits.data(), bits.size());
    return answer_of_bitmap(bits, address);
}

namespace {

// Joins stretches that touch.
class stretches {
  public:
    explicit stretches(const std::function<void(address_range)> &found) : found_(found) {}

    void add(uint32_t first, uint32_t last) {
        if (open_ && range_.last + 1 == first) {
            range_.last = last;
            return;
        }
        finish();
        range_ = {first, last};
        open_ = true;
    }
    void finish() {
        if (open_) {
            found_(range_);
        }
        open_ = false;
    }

  private:
    const std::function<void(address_range)> &found_;
    address_range range_ = {};
    bool open_ = false;
};

} // namespace

static void add_bitmap(stretches *out, uint32_t network, const bitmap &bits) {
    for (uint32_t i = 0; i < bits.size(); ++i) {
        const uint32_t address = network | i * 8;
        if (bits[i] == 0xFF) {
            out->add(address, address + 7);
            continue;
        }
        for (uint32_t bit = 0; bits[i] && bit < 8; ++bit) {
            if (bits[i] & 0x80 >> bit) {
                out->add(address + bit, address + bit);
            }
        }
    }
}

void block_map::walk(const std::function<void(address_range)> &found,
                     const std::function<void(const std::string &)> &damaged) const {
    if (size_ < table_size) {
        damaged("the file ends after " + std::to_string(size_) +
                " bytes, inside the table of "
                "level 1");
    }
    stretches out(found);
    const auto step_into = [&](uint32_t value, size_t below, uint32_t network, unsigned prefix) {
        const entry judged = judge(value, below, network_text(network, prefix));
        if (!judged.damage.empty()) {
            damaged(judged.damage);
        }
        if (judged.covers == coverage::everything) {
            out.add(network, network | 0xFFFFFFFF >> prefix);
        }
        return judged.covers == coverage::some;
    };
    for (uint32_t a = 0; a < 256; ++a) {
        if (!step_into(level1_[a], table_size, a << 24, 8)) {
            continue;
        }
        const table level2 = read_table(level1_[a]);
        for (uint32_t b = 0; b < 256; ++b) {
            const uint32_t network = a << 24 | b << 16;
            if (step_into(level2[b], bitmap_size, network, 16)) {
                bitmap bits;
                read(level2[b], bits.data(), bits.size());
                add_bitmap(&out, network, bits);
            }
        }
    }
    out.finish();
}

void for_each_network(address_range range, const std::function<void(uint32_t, unsigned)> &network) {
    uint64_t at = range.first;
    while (at <= range.last) {
        // The largest network that begins here and does not end behind the range.
        unsigned prefix = 32;
        while (prefix > 0) {
            const uint64_t size = uint64_t{1} << (33 - prefix);
            if (at % size != 0 || at + size - 1 > range.last) {
                break;
            }
            --prefix;
        }
        network(static_cast<uint32_t>(at), prefix);
        at += uint64_t{1} << (32 - prefix);
    }
}

} // namespace quillfence::data_tool
