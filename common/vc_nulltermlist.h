// Growable arrays of pointers that end in a null pointer.
//
// The caller holds the array in a pointer of its own and passes that pointer's address where the
// array may grow: its address changes with every append. An absent array (null) counts as empty.
// The array is heap memory and owns nothing; elements are released through the release function
// that a caller passes.
//
// A null argument that is needed gives an ERROR line (EINVAL) and the failure result; so does an
// allocation that fails (ENOMEM), which leaves the array as it was.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quillfence {

// 0 when the element is equal to the value.
using vc_element_compare = int (*)(const void *element, const void *value);
using vc_element_release = void (*)(void *element);

// Appends one element, which must not be null. Returns the new array, or null.
void **vc_lstcat(void ***list, void *element);

// Appends the elements of the second array: the pointers, not copies. The second array, which may
// be absent or the first itself, stays the caller's. Returns the new array, or null.
void **vc_lstappend(void ***list, void **second);

// The place of the first element for which compare gives 0, or that is the same pointer when
// compare is null. Null when there is none; an absent array is refused (EINVAL).
void **vc_lstfind(void **list, const void *value, vc_element_compare compare);

// 1 when both have the same length and equal elements pairwise (compare, or the same pointers when
// it is null), else 0; -1 with EINVAL when one is absent.
int vc_lstequal(void **a, void **b, vc_element_compare compare);

// Appends the pieces of text between separators as new heap strings.
//   separator   not 0 (EINVAL)
//   keep_empty  0 drops empty pieces; otherwise a separator at the very end gives a last one
// An empty text has no pieces. Returns 1, or 0; the pieces before a failure stay in the array.
// ERROR lines: EINVAL, ENOMEM for a piece; when the array can't grow, ENOMEM as vc_lstcat and then
// "Failed to append entry to list".
int vc_lstsplode_ex(void ***list, const char *text, char separator, int keep_empty);

// Releases the element at a position counted from 0 (with a null release function only removes it)
// and moves the ones behind it down. The array is not shrunk. Returns 1; 0 with EINVAL when the
// index is not below the count.
int vc_lstremove(void **list, uint32_t index, vc_element_release release);

// The number of elements.
uint32_t vc_lstcount(void **list);

// Releases every element (with a null release function none), frees the array and sets *list to
// null.
void vc_lstfree(void ***list, vc_element_release release);

// The same on an array of strings.
inline char **vc_lstcat(char ***list, char *element) {
    return reinterpret_cast<char **>(vc_lstcat(reinterpret_cast<void ***>(list), element));
}
inline uint32_t vc_lstcount(char **list) {
    return vc_lstcount(reinterpret_cast<void **>(list));
}
inline void vc_lstfree(char ***list, vc_element_release release) {
    vc_lstfree(reinterpret_cast<void ***>(list), release);
}

} // namespace quillfence
