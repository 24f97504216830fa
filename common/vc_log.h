// Log lines from where they happen. A source file that uses these names its module first:
//
//     static constexpr char module_name[] = "vc_file";
//
// The function in the line is the one that the macro stands in; a helper or lambda that reports
// for its caller uses the _AS forms with the operation's own name. A helper in another file takes
// the caller's place (QF_HERE) and uses the _AT forms: the line's number is then the caller's. The
// arguments of a DEBUG line are worked out only where such lines are wanted.
#pragma once

#include <cerrno>
#include <cstring>

#include "vc_w32.h"

#define QF_ERROR_AS(function, ...)                                                                 \
    ::quillfence::vc_log_error(function, module_name, __LINE__, __VA_ARGS__)
#define QF_DEBUG_AS(function, ...)                                                                 \
    (::quillfence::vc_debug_is_quiet()                                                             \
         ? void()                                                                                  \
         : ::quillfence::vc_log_debug(function, module_name, __LINE__, __VA_ARGS__))
#define QF_ERRNO_AS(function, number)                                                              \
    ::quillfence::vc_log_errno(function, module_name, __LINE__, number)

#define QF_HERE                                                                                    \
    ::quillfence::log_place {                                                                      \
        __func__, module_name, __LINE__                                                            \
    }
#define QF_DEBUG_AT(place, ...)                                                                    \
    (::quillfence::vc_debug_is_quiet()                                                             \
         ? void()                                                                                  \
         : ::quillfence::vc_log_debug((place).function, (place).file, (place).line, __VA_ARGS__))
#define QF_ERRNO_AT(place, number)                                                                 \
    ::quillfence::vc_log_errno((place).function, (place).file, (place).line, number)

#define QF_ERROR(...) QF_ERROR_AS(__func__, __VA_ARGS__)
#define QF_DEBUG(...) QF_DEBUG_AS(__func__, __VA_ARGS__)
#define QF_ERRNO(number) QF_ERRNO_AS(__func__, number)
#define QF_EINVAL() QF_ERRNO(EINVAL)
#define QF_ENOMEM() QF_ERRNO(ENOMEM)

namespace quillfence {

// Where a log line comes from.
struct log_place {
    const char *function;
    const char *file; // the module's name
    unsigned line;
};

// What a log line or a dump shows for a text that may be null.
inline const char *text_or_null(const char *text) {
    return text ? text : "(null)";
}

} // namespace quillfence
