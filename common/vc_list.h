// Singly linked lists of sized byte blocks. A list is the address of its head pointer; an empty
// list is a null head.
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
using vc_list_compare = int (*)(const vc_list_entry *a, const vc_list_entry *b);

// With copy set the list holds a copy of size bytes; without, it takes the pointer over.
// append: the new number of entries; prepend: 1. -1 null list or data or zero size, -2 no memory
// for the node, -3 no memory for the copy.
int vc_append_list_entry(vc_list_entry **list, const void *data, uint64_t size, int copy);
int vc_prepend_list_entry(vc_list_entry **list, const void *data, uint64_t size, int copy);

void vc_destroy_list(vc_list_entry **list, vc_release_function release);
int vc_list_count(const vc_list_entry *list);

vc_list_entry *vc_list_search(vc_list_entry *list, const void *key, size_t length,
                              vc_bytes_compare compare);
int vc_list_contains(vc_list_entry *list, const void *key, size_t length, vc_bytes_compare compare);
vc_list_entry *vc_list_search_string(vc_list_entry *list, const char *text, int ignore_case);
int vc_list_contains_string(vc_list_entry *list, const char *text, int ignore_case);

int vc_list_remove_ex(vc_list_entry **list, vc_list_entry *node, int release_data,
                      vc_release_function release);

char *vc_list_join(const vc_list_entry *list, const char *separator);
vc_list_entry *vc_list_split(const char *text, const char *delimiter);
int vc_list_from_string_by_char(vc_list_entry **list, const char *buffer, size_t length,
                                char separator);

int vc_list_sort(vc_list_entry **list, vc_list_compare compare);
vc_list_entry *vc_list_pindex(vc_list_entry *list, int32_t index);
void *vc_list_index_data(vc_list_entry *list, int32_t index);

} // namespace quillfence
