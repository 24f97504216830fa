#include "platform/format.h"

#include <cstdio>

namespace quillfence::platform {

int format_text(char *buffer, size_t size, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = vformat_text(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

int vformat_text(char *buffer, size_t size, const char *format, va_list arguments) {
    if (!buffer || size == 0) {
        return -1;
    }
    buffer[0] = '\0';
    if (!format) {
        return -1;
    }
    const int length = vsnprintf(buffer, size, format, arguments);
    return length >= 0 && static_cast<size_t>(length) < size ? length : -1;
}

int measure_text(const char *format, va_list arguments) {
    return format ? vsnprintf(nullptr, 0, format, arguments) : -1;
}

} // namespace quillfence::platform
