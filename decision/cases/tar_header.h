// The blocks of a tar file that tell about an entry: POSIX ustar, extended by pax records for what
// does not fit there. Pure functions over bytes.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tar_entry.h"

namespace quillfence::decision {

inline constexpr size_t tar_block_size = 512;
using tar_block = std::array<char, tar_block_size>;

// How many bytes follow the contents of so many bytes up to the end of the block.
constexpr size_t tar_padding(uint64_t size) {
    return static_cast<size_t>((tar_block_size - size % tar_block_size) % tar_block_size);
}

// --- writing ---

// The header of an entry, with everything that stands in front of it: one block, or three where the
// name is not ASCII or does not fit, or the size is 8 GiB or more. Owner and group are 0 and have
// no names; rights are those of the owner alone; a time that does not fit is the nearest that does.
std::string tar_header_of(const tar_entry &entry);

// --- reading ---

// What a header block says.
struct tar_header {
    std::string name; // as it stands there
    char type = '0';
    uint64_t size = 0;
    int64_t time = 0;
};

bool is_zero_block(const tar_block &block);
// Nothing when the block is no header that is read here; *problem then says why, as in "its
// checksum is wrong", or "<name>: ..." once the name is known.
std::optional<tar_header> read_tar_header(const tar_block &block, std::string *problem);

// What the records of a pax header say about the next entry; others are passed over.
struct pax_records {
    std::optional<std::string> path;
    std::optional<uint64_t> size;
};
std::optional<pax_records> read_pax_records(std::string_view text, std::string *problem);

} // namespace quillfence::decision
