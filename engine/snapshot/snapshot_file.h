// One file of a configuration, read and read again.
#pragma once

#include "frozen_files.h"

namespace quillfence {

enum class snapshot_reading : uint8_t {
    kept,    // the row has all that is to be known of its path
    left,    // the path is left to the files
    changed, // while it was read
    no_memory,
};

// What becomes of a large file.
struct large_files {
    uint64_t above; // this size it is one
    bool keep_open; // else it is left
};

// Looks at the row's path and reads it. *error receives why a path that is there is left; 0 when
// it is too large.
snapshot_reading __read_frozen_file(frozen_file *row, large_files large, uint32_t *error);

// Whether the path is still what the row says, byte by byte or, of a file that is kept open, by its
// digest.
bool __is_as_frozen(const frozen_file *row);

// The digest of some bytes, in 64 digits and a NUL. False without memory.
bool __sha256_text(const void *bytes, size_t size, char *text);

} // namespace quillfence
