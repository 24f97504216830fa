// Block maps, written whole and read level by level. docs/formats/block-maps.md tells the format.
// Addresses are in host byte order.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "address_set.h"
#include "address_text.h"
#include "data_program.h"
#include "open_file.h"

namespace quillfence::data_tool {

// --- Writing ---

struct map_size {
    uint32_t tables; // of level 2
    uint32_t bitmaps;
    uint64_t bytes;
    uint64_t addresses;
};

// Writes the map of a set: level 1, the level-2 tables in the order of their first /8, the bitmaps
// in the order of their first /16. Equal tables and bitmaps are written once; what is fully listed
// or not at all needs none. The bytes depend on the set alone. No map is larger than 514 MiB.
//   write  receives the pieces
map_size write_block_map(const address_set &addresses,
                         const std::function<void(const void *, size_t)> &write);

// --- Reading ---

// Where the answer for an address comes from.
struct map_answer {
    bool listed;
    int level;               // 1 and 2: an entry of that level; 3: a bitmap
    unsigned prefix;         // of the widest network around the address that is answered alike
    std::string damage = {}; // why there was no better answer than "not listed"
};

class block_map {
  public:
    // Throws a failure when the file can't be opened or read.
    explicit block_map(const std::string &path);

    // The engine's answer.
    map_answer ask(uint32_t address) const;

    // Calls `found` for each stretch of listed addresses, in order, none touching another, and
    // `damaged` with a sentence for each part that can't be read; nothing is listed there.
    void walk(const std::function<void(address_range)> &found,
              const std::function<void(const std::string &)> &damaged) const;

  private:
    using table = std::array<uint32_t, 256>;
    struct entry {
        coverage covers;
        std::string damage;
    };
    // `below` is the size of what the entry may point to.
    entry judge(uint32_t value, size_t below, const std::string &what) const;
    void read(uint64_t offset, void *bytes, size_t size) const;
    table read_table(uint64_t offset) const;

    std::string path_;
    open_file file_;
    uint64_t size_ = 0;
    table level1_;
};

// Calls `network` with the fewest networks (address and prefix length) that make up a stretch.
void for_each_network(address_range range, const std::function<void(uint32_t, unsigned)> &network);

} // namespace quillfence::data_tool
