// Growable arrays of pointers that end in a null pointer. An absent array is a null slot value
// and counts as empty. The array owns nothing; its address changes with every append.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quillfence {

using vc_element_compare = int (*)(const void *element, const void *value);
using vc_element_release = void (*)(void *element);

void **vc_lstcat(void ***list, void *element);
void **vc_lstappend(void ***list, void **second);
void **vc_lstfind(void **list, const void *value, vc_element_compare compare);
int vc_lstequal(void **a, void **b, vc_element_compare compare);
int vc_lstsplode_ex(void ***list, const char *text, char separator, int keep_empty);
int vc_lstremove(void **list, uint32_t index, vc_element_release release);
uint32_t vc_lstcount(void **list);
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
