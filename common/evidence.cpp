#include "evidence.h"

#include <cstdarg>
#include <cstring>

#include "platform/format.h"

namespace quillfence {

static constexpr size_t reason_size = 2048;

// The text that a format stands for without being formatted; null where there is more to do.
static const char *plain_text(const char *format, va_list arguments) {
    const char *const text = strcmp(format, "%s") == 0 ? va_arg(arguments, const char *)
                             : strchr(format, '%')     ? nullptr
                                                       : format;
    return text && strlen(text) < reason_size ? text : nullptr;
}

void tell_reason(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const char *const plain = plain_text(format, arguments);
    va_end(arguments);
    if (plain) {
        tell(&evidence_sink::gave_reason, {.text = plain});
        return;
    }
    char text[reason_size];
    va_start(arguments, format);
    platform::vformat_text(text, sizeof text, format, arguments);
    va_end(arguments);
    tell(&evidence_sink::gave_reason, {.text = text});
}

} // namespace quillfence
