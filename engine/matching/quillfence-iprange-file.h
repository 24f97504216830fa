// Range files as open files: the part that the check and the editor of quillfence-iprange share.
#pragma once

#include <cstdint>
#include <memory>

#include "frozen_files.h"
#include "quillfence-iprange.h"
#include "vc_file.h"

namespace quillfence {

inline constexpr uint64_t range_signature = 0x66D76C80A937D3EA;
inline constexpr uint32_t range_version_legacy = 1;
inline constexpr uint32_t range_version = 2;
inline constexpr uint32_t range_header_size = 16;
inline constexpr uint32_t legacy_record_size = 8;
inline constexpr uint32_t range_record_size = 264;
inline constexpr uint32_t longest_range_comment = 255;

// An open range file. Released by __close_range_file.
struct range_file {
    vc_handle file;
    ipr_file_header header;
    char *path;
    const frozen_file *frozen = nullptr; // in place of the file, for a lookup
};

inline bool is_legacy(const range_file *file) {
    return (file->header.version & 0xFF) == range_version_legacy;
}

// 1 and the address, or 0 and an ERROR line.
int __sane_ip(const char *text, uint32_t *address);

// A new string: directory, "/" unless it ends in one, name. Null with an ERROR line.
char *__range_path(const char *directory, const char *name);

// Opens a file and reads its header. Null when there is no usable file. initialise counts only
// together with write: the file is created when missing, and gets a fresh header when it has no
// valid one; otherwise a missing file gives null silently.
range_file *__open_range_file(const char *directory, const char *name, int write, int initialise);
enum class range_header : uint8_t { valid, invalid, unread };

// Reads the header of a file just opened into file->header. A file shorter than a header has an
// invalid one.
range_header __look_at_range_header(range_file *file);
// Tells in __open_range_file's name that a file with an invalid header is not used: a DEBUG line
// for one shorter than a header, else the ERROR line "file %s is corrupt". Returns 0.
int __refuse_range_file(const range_file *file);
// Closes (unless it is closed already) and frees; null is accepted.
void __close_range_file(range_file *file);
struct range_file_closer {
    void operator()(range_file *file) const {
        __close_range_file(file);
    }
};
// An open range file on its way through a function.
using range_file_ptr = std::unique_ptr<range_file, range_file_closer>;
// Empties the file and writes a header without records. 1 or 0.
int __reset_range_file(range_file *file);
// Writes the header as it is in the record. 1 or 0.
int __write_range_header(const range_file *file);

// Records in order, read in large pieces.
struct record_reader {
    vc_handle file;            // borrowed
    const unsigned char *rest; // in place of the file: records in memory, borrowed
    uint64_t rest_size;
    uint32_t record_size;
    uint64_t unread; // bytes of records that are still in the file
    uint32_t begin;  // what is read but not yet given out
    uint32_t end;
    unsigned char piece[124 * range_record_size];
};

// Starts at the file's current position, behind the header.
void __begin_records(record_reader *in, vc_handle file, uint32_t record_size, uint32_t count);
// The next record, valid until the next call. *size receives its bytes: fewer than a record's at
// the end of the file, or when a read failed.
// ERROR line: "Failed to read range records: error code %d", for a read that failed.
const unsigned char *__next_record(record_reader *in, uint32_t *size);

qf_ip_range __range_of_record(const unsigned char *record);

enum class range_search : uint8_t { found, absent, failed };

// Looks for a record with exactly these ends from the current position on; *index receives its
// number. failed: the file is shorter than its header says; ERROR line "file %s is corrupt" in the
// operation's name.
range_search __find_range(const char *operation, const range_file *file, const qf_ip_range *range,
                          uint32_t *index);

} // namespace quillfence
