#include "platform/format.h"

#include <climits>
#include <cstdio>
#include <cstring>

namespace quillfence::platform {

// Most formats hold nothing but texts, and the C library takes several hundred instructions for
// the shortest of them. These are put together here.
static bool holds_texts_alone(const char *format) {
    for (; (format = strchr(format, '%')); format += 2) {
        if (format[1] != 's') {
            return false;
        }
    }
    return true;
}

namespace {

// Where a text is put together; what does not fit is counted alone.
struct cut_text {
    char *buffer; // null when there is no room at all
    size_t size;
    size_t length;
};

} // namespace

static void append(cut_text *to, const char *text, size_t length) {
    if (to->length < to->size) {
        const size_t room = to->size - to->length;
        memcpy(to->buffer + to->length, text, length < room ? length : room);
    }
    to->length += length;
}

// The length of the whole text.
static int put_texts(char *buffer, size_t size, const char *format, va_list arguments) {
    cut_text made = {buffer, size, 0};
    while (const char *const conversion = strchr(format, '%')) {
        append(&made, format, static_cast<size_t>(conversion - format));
        const char *const text = va_arg(arguments, const char *);
        append(&made, text ? text : "(null)", text ? strlen(text) : strlen("(null)"));
        format = conversion + 2;
    }
    append(&made, format, strlen(format));
    if (size) {
        buffer[made.length < size ? made.length : size - 1] = '\0';
    }
    return made.length <= INT_MAX ? static_cast<int>(made.length) : -1;
}

static int put_formatted(char *buffer, size_t size, const char *format, va_list arguments) {
    return holds_texts_alone(format) ? put_texts(buffer, size, format, arguments)
                                     : vsnprintf(buffer, size, format, arguments);
}

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
    const int length = put_formatted(buffer, size, format, arguments);
    return length >= 0 && static_cast<size_t>(length) < size ? length : -1;
}

int measure_text(const char *format, va_list arguments) {
    return format ? put_formatted(nullptr, 0, format, arguments) : -1;
}

} // namespace quillfence::platform
