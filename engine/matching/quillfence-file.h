// List files: plain text, one entry a line, "#" comments.
#pragma once

#include <cstdint>

#include "vc_list.h"

namespace quillfence {

// 0 on a match, in the sense of strcmp.
using list_matcher = int (*)(const char *pattern, const char *value);
using line_callback = void (*)(const char *line, uint32_t length);

char *__build_path(const char *directory, const char *name);
int __file_contains_line(const char *directory, const char *name, const char *value,
                         list_matcher matcher);
int __regexmatch(const char *expression, const char *subject);
int __wildcardmatch(const char *pattern, const char *subject);
int vc_file_to_int(const char *directory, const char *name);
vc_list_entry *vc_file_to_list(const char *directory, const char *name);
int vc_iterate_file(const char *directory, const char *name, line_callback callback);
const char *vc_add_entry(const char *directory, const char *name, const char *entry,
                         const char *comment, list_matcher matcher);
const char *vc_del_entry(const char *directory, const char *name, const char *entry,
                         uint8_t keep_entry, list_matcher matcher);

} // namespace quillfence
