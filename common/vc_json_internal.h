// What the source files of the module vc_json share. Lines come under the name of the operation
// that is going on.
#pragma once

#include <cstddef>

#include "vc_json.h"

namespace quillfence {

inline bool __vc_json_is_complex(const vc_json *node) {
    return (node->type & vc_json_mask_complex) != 0;
}

inline vc_json **__vc_json_elements(const vc_json *array) {
    return static_cast<vc_json **>(array->value);
}

inline vc_hashmap *__vc_json_members(const vc_json *object) {
    return static_cast<vc_hashmap *>(object->value);
}

// A character as "%c" can show it: the NUL that ends a text would end the line, too.
inline char __vc_json_shown(char c) {
    return c ? c : '?';
}

// A zeroed node of a type; null with an ENOMEM line.
vc_json *__vc_json_new_node(const char *operation, uint32_t type);

// Frees what a node of this type may have as its value.
void __vc_json_free_value(uint32_t type, void *value);

// 1 when text is a number as a node can hold it, else 0 with an ERROR line.
int __vc_json_valid_number(const char *operation, const char *text);

// The texts of number nodes, new strings; null with an ERROR line.
char *__vc_json_text_of_float(const char *operation, double value);
char *__vc_json_text_of_int(int32_t value);
char *__vc_json_text_of_int64(int64_t value);

// A copy of a string; null with an ENOMEM line.
char *__vc_json_copy_text(const char *operation, const char *text);

} // namespace quillfence
