// Singly linked lists of sized byte blocks.
//
// A list is its head pointer, an empty list is null; operations that change a list take the
// address of that pointer. The list owns its nodes. It owns the data of an entry when it made a
// copy or took the pointer over; data is released only by the release function that a caller
// passes, usually free.
//
// A null argument that is needed gives an ERROR line (EINVAL) and the failure result; so does an
// allocation that fails (ENOMEM).
#pragma once

#include <cstddef>
#include <cstdint>

namespace quillfence {

struct vc_list_entry {
    void *data;    // may be null
    uint64_t size; // the byte count given when the entry was added
    vc_list_entry *next;
};

using vc_release_function = void (*)(void *data);
// memcmp-like: 0 when the first length bytes agree.
using vc_bytes_compare = int (*)(const void *data, const void *key, size_t length);
// Positive when b belongs in front of a.
using vc_list_compare = int (*)(const vc_list_entry *a, const vc_list_entry *b);

// Add an entry at the end or at the front.
//   size  bytes of data; 0 is refused like a null argument
//   copy  non-zero: the list gets a copy of its own; 0: it takes data over
// Return the new number of entries (append) or 1 (prepend; not the count, on purpose). Failures:
// -1 refused argument, -2 no memory for the node, -3 no memory for the copy; then the list is as
// before and data still the caller's.
// append walks the whole list; keep that in mind when adding many.
int vc_append_list_entry(vc_list_entry **list, const void *data, uint64_t size, int copy);
int vc_prepend_list_entry(vc_list_entry **list, const void *data, uint64_t size, int copy);

// Releases every entry's data with the release function (null: leaves the data alone), frees the
// nodes and sets *list to null.
void vc_destroy_list(vc_list_entry **list, vc_release_function release);

// The number of entries.
int vc_list_count(const vc_list_entry *list);

// The first entry with data for which compare(data, key, length) is 0, where length is the smaller
// one of the entry's size and the key's: a longer entry that begins with the key is found too.
// Null when there is none. A length of 0 is refused like a null argument.
vc_list_entry *vc_list_search(vc_list_entry *list, const void *key, size_t length,
                              vc_bytes_compare compare);
// 1 when vc_list_search finds an entry, else 0; failures are reported as vc_list_search.
int vc_list_contains(vc_list_entry *list, const void *key, size_t length, vc_bytes_compare compare);

// The first entry whose data, a NUL-terminated string, is the whole text; null when there is none.
//   ignore_case  non-zero: without regard to ASCII case
vc_list_entry *vc_list_search_string(vc_list_entry *list, const char *text, int ignore_case);
// 1 when vc_list_search_string finds an entry, else 0; failures are reported as that operation.
int vc_list_contains_string(vc_list_entry *list, const char *text, int ignore_case);

// Takes a node out of the list. With release_data set and a release function given, releases its
// data and frees it; otherwise the detached node, its next pointer cleared, is the caller's.
// Returns 1; 0 without a line when the node is not in the list, with EINVAL when the list address
// or the node is null or the list is empty.
int vc_list_remove_ex(vc_list_entry **list, vc_list_entry *node, int release_data,
                      vc_release_function release);

// A new heap string, which the caller frees, of the entries' strings with separator in between;
// entries without data are left out. Null, without a line, when the first entry has no data; an
// empty list is refused (EINVAL).
char *vc_list_join(const vc_list_entry *list, const char *separator);

// A new list of the pieces of text between occurrences of delimiter, as heap strings (size: length
// + 1). Neighbouring delimiters give an empty piece, a final delimiter an empty last piece. Both
// arguments must be non-empty (EINVAL). Null on failure.
vc_list_entry *vc_list_split(const char *text, const char *delimiter);

// Appends the pieces of a byte buffer between separator bytes: "a,b" gives two entries, "a,b,"
// three with an empty last one, ",a" two, and an empty buffer one empty entry.
//   length  bytes of buffer, which needs no NUL
// A piece of n bytes is a heap block of n + 2 with two NULs behind it, an empty piece one NUL; the
// entry's size is the block's.
// Returns 1, or 0 with an ERROR line: EINVAL, ENOMEM for the piece, the system's text for number
// 125 when the entry can't be appended. The pieces before a failure stay in the list.
int vc_list_from_string_by_char(vc_list_entry **list, const char *buffer, size_t length,
                                char separator);

// Sorts in place, without extra memory; equal entries keep their order. Returns 1, 0 for a null
// argument; an empty list is sorted.
int vc_list_sort(vc_list_entry **list, vc_list_compare compare);

// The entry at a position counted from 0; an index below 1 gives the head. Null with an ERROR line
// (the text of ERANGE) for an index that is not below the count.
vc_list_entry *vc_list_pindex(vc_list_entry *list, int32_t index);
// The data of that entry, or null; failures are reported as vc_list_pindex.
void *vc_list_index_data(vc_list_entry *list, int32_t index);

} // namespace quillfence
