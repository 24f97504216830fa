// A compiled pattern file, read expression by expression as the engine does, but with the damage
// told.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "data_program.h"
#include "pattern_text.h"

namespace quillfence::data_tool {

// An expression of a file, or a stretch of bytes that holds none.
struct file_block {
    trex_ptr expression; // null for damage
    uint64_t offset = 0; // in the file
    std::string damage;  // what is wrong from there on
};

// All of a file, in order. A stretch of damage is one block, however often the engine stumbles
// over it. Throws a failure when the file can't be read or is no compiled pattern file.
std::vector<file_block> read_compiled_file(const std::string &path);

} // namespace quillfence::data_tool
