// Logging, and the few POSIX facilities that the rest of the system is written against.
//
// Every log line of the process goes through one function, the log function. With none installed
// every emitter is silent. The message part of a line is cut at 255 characters and bytes outside
// 0x20-0x7E become '?'.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "platform/event_log.h"
#include "platform/format.h"

namespace quillfence {

// The syslog levels in use. The emitters write error (3), information (6) and debug (7) lines.
enum : int {
    priority_critical = 2,
    priority_error = 3,
    priority_warning = 4,
    priority_notice = 5,
    priority_information = 6,
    priority_debug = 7,
};

using vc_log_function = int (*)(int priority, const char *format, ...);
using vc_oom_function = int (*)();

// Opens the event log under the source name "Quillfence" and keeps a copy of ident; an open log
// is closed first. option and facility are accepted and ignored. A null ident does nothing.
void openlog(const char *ident, int option, int facility);
// The default log function: one event a call, text cut at 1023 characters. Returns 0.
int syslog(int priority, const char *format, ...) QF_PRINTF_LIKE(2, 3);
// Closes the event log and forgets the ident.
void closelog();
// The event type of a priority: 2 and 3 error, 4 warning, 5 to 7 success, any other warning.
platform::event_type vc_event_type(int priority);

// Installs the log function; null switches all logging off.
void vc_set_log_function(vc_log_function function);
// Installs the function that is called after an out-of-memory line; null for none.
void vc_set_oom_function(vc_oom_function function);

// Emit one line: (3, "%s:%d ERROR %s(): %s"), (7, "%s:%d DEBUG %s(): %s") and (6, "%s"). DEBUG
// lines need VERBOSEDEBUG in the environment, which is looked up once a process.
void vc_log_error(const char *function, const char *file, unsigned line, const char *format, ...)
    QF_PRINTF_LIKE(4, 5);
void vc_log_debug(const char *function, const char *file, unsigned line, const char *format, ...)
    QF_PRINTF_LIKE(4, 5);
void vc_log_info(const char *format, ...) QF_PRINTF_LIKE(1, 2);
// The ERROR line for ENOMEM; returns the out-of-memory function's result, 0 when there is none.
int vc_log_oom(const char *function, const char *file, unsigned line);
// Forgets the VERBOSEDEBUG decision, so that a test can take it again.
void __vc_forget_verbosedebug();

// calloc that reports a failure under the caller's location.
void *vc_calloc(const char *function, const char *file, unsigned line, size_t count, size_t size);

// A log function that writes the line, cut at 255 characters, to standard output.
int vc_console_log(int priority, const char *format, ...) QF_PRINTF_LIKE(2, 3);

// Replaces every byte outside 0x20-0x7E by '?', in place. Null is accepted.
void vc_sanitize(char *text);

// Formats into a new heap string of at most 1023 characters, freeing what *destination held (null
// or a heap string). Returns the length, -1 when the text was cut or on failure; a cut text is in
// *destination all the same. ERROR lines: EINVAL, ENOMEM.
int asprintf(char **destination, const char *format, ...) QF_PRINTF_LIKE(2, 3);

// Local time of UTC seconds. Returns fields, null (ERROR: EINVAL) when an argument is null.
tm *localtime_r(const int64_t *seconds, tm *fields);

// A new heap string of at most length characters. Null, with errno ENOMEM, without memory.
char *vc_strndup(const char *text, size_t length);

// A dotted IPv4 address as a number in host byte order.
uint32_t vc_ip_to_host_u32(const char *text);

// Waits for a debugger and stops in it, unless the file "C:/vc_breakpoint_bypass" exists: then it
// returns non-zero at once.
int vc_breakpoint();

} // namespace quillfence
