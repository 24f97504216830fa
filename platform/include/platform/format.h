// Formatted text: the one place where the program turns a format and its arguments into bytes.
// Both builds use C99 rules, so a cut text, "%zu" and "%lld" mean the same on either.
#pragma once

#include <cstdarg>
#include <cstddef>

// Lets the compiler check a printf-like function: the index of its format, and of its first
// variable argument (0 for a va_list).
#if defined(__clang__)
#define QF_PRINTF_LIKE(text, first) __attribute__((__format__(__printf__, text, first)))
#else
#define QF_PRINTF_LIKE(text, first) __attribute__((__format__(__gnu_printf__, text, first)))
#endif

namespace quillfence::platform {

// Formats into buffer (size bytes, at least 1), cutting the text at size - 1 characters, and
// terminates it. Returns the length, or -1 when the text was cut or could not be formatted.
int format_text(char *buffer, size_t size, const char *format, ...) QF_PRINTF_LIKE(3, 4);
int vformat_text(char *buffer, size_t size, const char *format, va_list arguments)
    QF_PRINTF_LIKE(3, 0);

// The length that the whole text would have, or a negative number when it can't be formatted.
// Consumes arguments; a caller that formats afterwards passes a copy here.
int measure_text(const char *format, va_list arguments) QF_PRINTF_LIKE(1, 0);

} // namespace quillfence::platform
