// Files that were read beforehand. A configuration that is asked for many transactions is read once
// (engine/snapshot) and put into a call context (call_context.h); whoever looks at a file, or reads
// one, asks here first, and asks the system when nothing is known of the path.
//
// The answer is the system's of the moment when the files were read: what was missing is missing.
// Nothing here changes once it is made, so several threads may use the same one at once. What a
// file that is kept open holds is the file's own affair.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/file.h"

namespace quillfence {

struct frozen_list;     // engine/matching: the index of a list file
struct frozen_ranges;   // engine/matching: the records of a range file, sorted
struct frozen_patterns; // engine/matching: a file of compiled patterns, decoded
struct ksf_index;       // known_sender_forgery: the declarations by domain
struct frozen_domains;  // common/site: the mail server's domains

// What a path is, and what it holds. A file has its bytes, or is kept open where those are too
// many; its form is what the format's own module made of them, null where a look goes through the
// bytes as it goes through a file.
struct frozen_file {
    char *path;          // as the engine writes it
    uint32_t error;      // of a look at it: 0, or that it is missing
    uint32_t attributes; // of platform::path_attributes; 0 when it is missing
    char *bytes;         // a NUL stands behind them; null when it is no file
    uint64_t size;
    int64_t changed;       // in seconds since 1970, UTC
    char sha256[64 + 1];   // of the bytes, in digits; "" when it is no file
    frozen_list *list;     // at most one of these is there
    frozen_ranges *ranges; //
    frozen_patterns *patterns;
    ksf_index *declarations;
    frozen_domains *domains;
    // A large block map, open for file_read_at in place of having its bytes.
    platform::file_handle file = platform::invalid_file;

    bool is_file() const {
        return bytes || file != platform::invalid_file;
    }
};

// The rows are sorted by path, so that each is there once.
struct frozen_files {
    frozen_file *rows;
    size_t row_count;
    uint32_t *slots;   // row numbers from 1 in the order of their paths' hashes; 0 is an empty slot
    size_t slot_count; // a power of two, more than there are rows
    char revision[sizeof "sha256:" + 64]; // of all of them; "" when there is none
};

// The row of a path, which is compared byte by byte: the tree was asked for this very text.
// Null when nothing is known of it.
const frozen_file *find_frozen_file(const frozen_files *files, const char *path);

// Makes the slots of files whose rows are all there. 0 without memory.
int index_frozen_files(frozen_files *files);

// The calling thread's answer; null when it has no configuration, or that knows nothing of the
// path.
const frozen_file *frozen_file_of(const char *path);

} // namespace quillfence
