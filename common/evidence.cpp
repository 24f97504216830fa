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

void vc_log_errno(const char *function, const char *file, unsigned line, int number) {
    vc_log_error(function, file, line, "%s", strerror(number));
    if (number == ENOMEM) {
        tell(&evidence_sink::could_not_look, {.what = function, .error = 8, .reason = "no memory"});
    }
}

} // namespace quillfence
