#include "evidence.h"

#include <cstdarg>

#include "platform/format.h"

namespace quillfence {

void tell_reason(const char *format, ...) {
    char text[2048];
    va_list arguments;
    va_start(arguments, format);
    platform::vformat_text(text, sizeof text, format, arguments);
    va_end(arguments);
    tell(&evidence_sink::gave_reason, {.text = text});
}

} // namespace quillfence
