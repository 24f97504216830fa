// List files: the white and black lists, one entry a line, and the operations that read, match
// and edit them.
//
// A list is read afresh on every lookup. Leading white space of a line is skipped, trailing blanks
// belong to the entry; a line that is empty then, or begins with "#", is a comment. A physical
// line of more than 1022 characters is read as several lines. CR LF counts as LF.
// docs/formats/list-files.md tells the whole format.
//
// "Empty" means null or "". ERROR and DEBUG lines name the operation and "quillfence-file".
#pragma once

#include <cstdint>

#include "vc_list.h"

namespace quillfence {

// Compares a pattern (a line from its first non-blank character on) with a value: 0 on a match,
// in the sense of strcmp. __wildcardmatch, __regexmatch and _stricmp are used.
using list_matcher = int (*)(const char *pattern, const char *value);
// Gets a line without its line end; length is the line's in bytes.
using line_callback = void (*)(const char *line, uint32_t length);

// The path of a file in a directory: a "/" is put between unless the directory ends in one.
// Returns a new string that the caller frees, or null. ERROR lines: EINVAL when either is empty,
// ENOMEM.
char *__build_path(const char *directory, const char *name);

// Whether some pattern line of a list matches the value: 1 or 0. The first match ends the search.
// A missing or unreadable list is an empty list, silently; it is not created.
//   directory  null: name is the path; "": the path is "/" and the name
// ERROR lines: EINVAL for an empty name or value or no matcher, ENOMEM; the matcher's own, and
// vc_file_exists_ex's when the path can't be looked at.
// DEBUG line on a match: "%s(%s, line %d): hit [%s][%s]" with the line as read; the number counts
// comments and blank lines, from 1.
int __file_contains_line(const char *directory, const char *name, const char *value,
                         list_matcher matcher);

// 0 when the regular expression matches the subject, else 1. Folds case, as stored expressions
// do. An expression that does not compile matches nothing; the compiler writes its ERROR lines.
// ERROR lines: EINVAL for a null argument. DEBUG line on a match: "got a match [%s] => [%s]".
int __regexmatch(const char *expression, const char *subject);

// 0 when the pattern matches the whole subject, else non-zero. Without a "*" the two are compared
// as texts, ignoring ASCII case.
// Kept on purpose: in a pattern with a "*" only "*" and "." are turned into an expression's ".*"
// and "\."; every other operator of the expression engine keeps its meaning there.
// ERROR lines: EINVAL for an empty argument, ENOMEM; and those of __regexmatch.
int __wildcardmatch(const char *pattern, const char *subject);

// The number that a file begins with, in the sense of atoi (a number out of range is the nearest
// int); 0 when there is none, or no file. ERROR lines: EINVAL for an empty argument, ENOMEM.
int vc_file_to_int(const char *directory, const char *name);

// The lines of a file, split at LF, as a new list of heap strings (vc_destroy_list with free): a
// CR stays, and an LF at the end gives an empty last entry. Null when the file is missing, empty
// or cannot be read. ERROR lines: "%s attempting to assemble name %s %s" when there is no path.
vc_list_entry *vc_file_to_list(const char *directory, const char *name);

// Calls back for every line, comments and blank lines too, with all CRs and LFs at its end taken
// off. 1 when the file was read to its end; 0 when an argument is empty, or the file is missing,
// cannot be opened or fails to be read. ERROR lines: EINVAL, ENOMEM, the system's text for a file
// that does not open or read.
int vc_iterate_file(const char *directory, const char *name, line_callback callback);

// The list editor. Both operations return null on success, else one of the fixed messages below.
//
// An edited list is written anew, with LF line ends, as "<list>.tmp" (a leftover of that name is
// deleted), brought to stable storage, and takes the list's place in one step, with its owner and
// rights; of a symbolic link the file that it leads to is replaced. A lookup at any moment, also
// after a kill or without power, finds the old list or the new one. The list stays locked from the
// beginning to the end: a second editor waits for a second at most, and then gets "Error opening
// file"; so does one whose disk is full or whose file can't be read or written, after an ERROR line
// that tells the reason. The list is then as it was, and a missing one may have become an empty
// one. The one failure that leaves it open which list is there after a loss of power is that of
// bringing the folder to stable storage.
//
// Matching is that of the lookup: comments never match. A line that begins with a TAB belongs to
// the entry above it as that entry's comment, and does not match either.
inline constexpr char list_bad_add[] = "Invalid arguments to add";
inline constexpr char list_bad_comment[] = "Invalid comment to add";
inline constexpr char list_opposite[] = "Entry is present in the opposite table";
inline constexpr char list_no_memory[] = "Out of memory error";
inline constexpr char list_open_failed[] = "Error opening file";
inline constexpr char list_exists[] = "Entry already exists";
inline constexpr char list_not_found[] = "Entry not found";
inline constexpr char list_bad_del[] = "Invalid arguments to del";

// Without a comment: adds an entry at the end of a list, which is created when missing. With a
// comment (1 to 255 characters): sets the comment of an entry that is there; every line that
// matches the entry becomes the entry as given. An entry that the opposite list holds is refused;
// configuration.h tells which lists are each other's opposite.
// ERROR lines: EINVAL, ENOMEM, and those of the file operations.
const char *vc_add_entry(const char *directory, const char *name, const char *entry,
                         const char *comment, list_matcher matcher);

// One of many entries that are added together, and what became of it.
enum class addition : uint8_t {
    added,    // it is in the list now; when the edit fails: it would be
    repeated, // the same as an earlier one of them
    present,  // it was there already
    opposed,  // the opposite list holds it
};
struct list_addition {
    const char *entry; // borrowed, not empty, without a line end
    addition outcome;
};

// Adds many entries in one edit: behind the others, in their order, without comments. Entries are
// compared as whole texts without regard to ASCII case; those that are there already, or come
// twice, are passed over, and a list that lacks none is left alone. When the opposite list holds
// one of them nothing is added, and the message is list_opposite. outcome is set when the result
// is null or list_opposite.
// The list is read once and replaced once, however many entries there are, and the new ones go out
// in one vc_write.
// ERROR lines: EINVAL, ENOMEM, and those of the file operations.
const char *vc_add_entries(const char *directory, const char *name, list_addition *additions,
                           uint32_t count);

// Removes every line that matches the entry, and the comment below it (one line); with keep_entry
// only the comments. Kept on purpose: success when the list does not exist.
// ERROR lines: EINVAL, ENOMEM, and those of the file operations.
const char *vc_del_entry(const char *directory, const char *name, const char *entry,
                         uint8_t keep_entry, list_matcher matcher);

} // namespace quillfence
