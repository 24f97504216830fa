// IP range files: IPv4 ranges with a comment each, in a binary file.
//
// A file is a 16-byte header and records of 264 bytes (8 in the legacy version 1):
// docs/formats/range-files.md. Addresses are IPv4 in network byte order throughout. Every range
// must lie inside one /16.
//
// Address texts are judged alike by all operations; what is wrong with one is an ERROR line of
// "__sane_ip": "IP address argument is empty or NULL", "Sorry but this system does not yet support
// IPv6 range checks for address [%s]", "Invalid IP address argument [%s]" or "This system does not
// support broadcast addresses [%s]" (0.0.0.0 and 255.255.255.255). Paths are joined as directory,
// "/" unless it ends in one, and name; "prefix argument is empty or NULL" and "file argument is
// empty or NULL" are ERROR lines of "__range_path". All lines name "quillfence-iprange".
#pragma once

#include <cstdint>

namespace quillfence {

// Both ends belong to the range.
struct qf_ip_range {
    uint32_t low;
    uint32_t high;
};

// The header of a range file.
struct ipr_file_header {
    uint64_t signature;
    uint32_t version; // its low byte counts: 2, or 1 for the legacy format
    uint32_t count;   // of records
};

// --- arithmetic; all messages are DEBUG lines ---

// 1 when a >= b inside the prefix that level demands, else 0. Level 0 compares the whole
// addresses; 1, 2 and 3 (and above) want both in the same /8, /16 or /24.
int qf_ip_ge(uint32_t a, uint32_t b, int level);
// 1 when low <= high inside one /16. Null gives 0.
int qf_valid_ip_range(const qf_ip_range *range);
// 1 when the address lies in a valid range. 0.0.0.0 and 255.255.255.255 never do.
int qf_ip_in_range(uint32_t address, const qf_ip_range *range);
// 1 when an address text lies in the documentation network 192.0.2.0/24, else 0.
int qf_ip_in_documentation_range(const char *address);

// --- reading ---

// 1 when signature and version are those of a range file. Null gives 0.
int ipr_valid_file_header(const ipr_file_header *header);

// Whether a record of the file contains the address: 1, or 0 on any problem. A missing file is an
// empty one, silently, and is not created.
// ERROR lines: "file %s is corrupt" for a bad header or fewer records than the header says (behind
// "Failed to read range records: error code %d" when a read failed), "file
// %s has an invalid range - treating as corrupt" (the search ends there), ENOMEM. DEBUG lines:
// "zero byte file on non initializing operation", "file %s is corrupt" for less than a header.
// Kept on purpose: records are taken as 264 bytes each also in a legacy file, and a last record of
// 8 to 263 bytes still counts.
int file_contains_ip_range_match(const char *name, const char *address, const char *directory);

// 1 when the file holds a record with exactly these ends, else 0.
//   offset  receives 16 + 264 times the record's number; may be null. Kept on purpose: also in a
//           legacy file, where the record lies elsewhere
// ERROR lines: "file %s is corrupt", "Invalid arguments for low and high range" (not low <= high in
// one /16). DEBUG line: "Invalid parameter" for a null or empty path or a null address.
int ipr_file_contains_range(const char *path, const char *low, const char *high, uint32_t *offset);

// --- editing ---
//
// An edit holds the file locked from its beginning to its end; a second editor waits for a second
// at most, and then gets "Error opening file". Killed at any moment or without power, an edit
// leaves the old ranges or the new ones. One that fails leaves the old contents, but for a file
// that ipr_add begins anew.
//
// What is rewritten is written as "<path>.new", brought to stable storage, and takes the range
// file's place in one step, with its owner and rights; of a symbolic link the file that it leads to
// is replaced. Meanwhile the old contents are linked to "<path>.bak", where the file system has
// links. Both are gone afterwards; a ".new" or ".bak" that a killed edit left behind is deleted by
// the next edit. A ".bak" whose range file is missing, as earlier versions may have left
// it, is put back by the next edit, with the ERROR line "file %s was missing and has been restored
// from %s".
//
// ERROR lines of all edits: those of vc_file, "Failed to rename %s to %s: %s", "Failed to sync %s:
// %s"; of those that rewrite: "Failed to remove old backup file %s: %s", "Failed to link %s to %s:
// %s", "Failed to remove backup file %s: %s" (which is still success), "Error removing file %s: %s"
// (of "__remove_temporary").
//
// The text in *error (a place that may be null) is one of these, never to be freed, and null on
// success:
inline constexpr char range_bad_arguments[] = "Invalid arguments to add";
inline constexpr char range_open_failed[] = "Error opening file";
inline constexpr char range_legacy[] = "Legacy format detected, abort";
inline constexpr char range_invalid[] = "Invalid ip range to add";
inline constexpr char range_exists[] = "Entry already exists";
inline constexpr char range_traverse_failed[] = "Error traversing file";
inline constexpr char range_write_failed[] = "Error writing file";
inline constexpr char range_read_failed[] = "Error reading file";
inline constexpr char range_no_memory[] = "Out of memory error";
inline constexpr char range_old_backup[] = "Error removing old backup file";

// Adds a range behind the counted records, or replaces the comment of the same range; 1 or 0. A
// file that is missing, shorter than a header or has a bad one is begun anew. One with fewer
// records than its header says is "Error traversing file".
//   comment  at most 255 characters; null and "" count as none
// A new record is written in place and brought to stable storage, then its count is. Bytes behind
// the counted records, as an add that was killed leaves them, are cut first: DEBUG line "file %s
// had %d bytes behind its records, which are cut". A new comment rewrites the file, since a record
// that is overwritten can be torn. ERROR lines: "file %s is corrupt", ENOMEM.
int ipr_add(const char *directory, const char *name, const char *low, const char *high,
            const char *comment, const char **error);

// One of many ranges that are added together, and what became of it.
enum class range_outcome : uint8_t {
    added,    // it is in the file now; when the edit fails: it would be
    repeated, // the same as an earlier one of them
    present,  // it was there already, whatever its comment
};
struct range_addition {
    qf_ip_range range;
    range_outcome outcome;
};

// Adds many ranges in one edit, in their order, each with the same comment; 1 or 0. Those that are
// there already, or come twice, are passed over; a file that lacks none is left alone. The file is
// begun anew, and its records are written, as ipr_add does it: all records behind the counted ones,
// brought to stable storage, then their count, so that all of them are there or none.
//   additions  each inside one /16, with neither 0.0.0.0 nor 255.255.255.255 at an end, else the
//              text is "Invalid ip range to add". outcome is set on success
//   comment    as in ipr_add
// ERROR lines: those of ipr_add, EINVAL.
int ipr_add_all(const char *directory, const char *name, range_addition *additions, uint32_t count,
                const char *comment, const char **error);

// Removes every record with exactly these ends, by rewriting the file; 1 or 0.
// A range that is not there: 0 with the DEBUG line "file %s does not contain range %s-%s - nothing
// to remove" and no error text. Kept on purpose: a bad address is "Invalid arguments to add".
// ERROR lines: "file %s is corrupt", ENOMEM.
int ipr_del_range_from_file(const char *directory, const char *name, const char *low,
                            const char *high, const char **error);

// Rewrites a legacy file in the current version, with empty comments. 1 when the file is in version
// 2 now or does not exist, else 0. One that is in version 2 already is only read, without a lock.
int ipr_convert_file(const char *directory, const char *name);

} // namespace quillfence
