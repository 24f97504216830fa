// The records of a range file, for listing and comparing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quillfence::data_files {

// Addresses are numbers in host byte order.
struct range_record {
    uint32_t number; // from 1, in the order of the file
    uint32_t low;
    uint32_t high;
    std::string comment; // to its first NUL
    bool valid;          // by the engine's own judgement
    bool comment_ends;   // has a NUL within its place
};

enum class range_state {
    missing,
    unreadable,
    empty,   // no byte, or less than a header
    corrupt, // no header of a range file
    legacy,
    current,
};

struct range_records {
    range_state state = range_state::missing;
    uint32_t error = 0;                // Win32 number, when unreadable
    uint32_t counted = 0;              // by the header
    uint64_t size = 0;                 // of the file
    std::vector<range_record> records; // those of the counted ones that are there in full
};

inline constexpr uint32_t no_record = 0;

// Reads a file in either version; it is not created.
range_records read_ranges(const std::string &path);
// The size that a file of this state and count has.
uint64_t wanted_size(const range_records &of);

std::string range_text(const range_record &record); // "10.1.2.0-10.1.2.255"

// Finds a record that holds a whole range.
class range_cover {
  public:
    explicit range_cover(
        const std::vector<range_record> &records); // borrowed; invalid ones are left out
    // The record, other than the one of that number, that holds all from low to high; of several
    // the one that begins first. Null for none.
    const range_record *find(uint32_t low, uint32_t high, uint32_t except = no_record) const;

  private:
    std::vector<const range_record *> sorted_; // by low, wider ones first
    // For each sorted record the two that reach furthest among it and those before it.
    struct reach {
        const range_record *furthest;
        const range_record *second;
    };
    std::vector<reach> reach_;
};

} // namespace quillfence::data_files
