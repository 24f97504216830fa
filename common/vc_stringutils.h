// Heap strings: building, converting, trimming and rewriting NUL-terminated byte strings.
//
// A "slot" is the address of a string pointer; the operation may replace the string in it, and
// whatever the slot holds afterwards is the caller's to free.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "platform/format.h"

namespace quillfence {

int vc_strcat(char **slot, const char *source);
int vc_ccat(char **slot, char character);
int vc_ltoa(char **slot, int32_t value);
int vc_icat(char **slot, int32_t value);

void vc_lower(char *text);
void vc_upper(char *text);

inline constexpr int vc_trim_flag_left = 1;
inline constexpr int vc_trim_flag_right = 2;
int vc_trim_right(char *text);
int vc_trim_left(char *text);
int vc_trim_ex(char *text, int flags);
int vc_trim(char **slot);
int vc_chomp(char **slot);
int vc_simplify_whitespace(char **slot);
int vc_strip_whitespace(char **slot);

int vc_str_replace(char **slot, const char *pattern, const char *replacement);
int vc_str_replace_smaller_ex(char *text, const char *pattern, const char *replacement,
                              int case_sensitive);

int vc_asprintf(char **slot, const char *format, ...) QF_PRINTF_LIKE(2, 3);
int vc_vasprintf(char **slot, const char *format, va_list arguments) QF_PRINTF_LIKE(2, 0);

char *vc_strdup_till(const char *text, const char **end, char stop);

} // namespace quillfence
