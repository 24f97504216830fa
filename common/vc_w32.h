// Logging, and the few POSIX facilities that the rest of the system is written against.
//
// Every log line of the process goes through one function, the log function. With none installed
// every emitter is silent. The message part of a line is cut at 255 characters, and bytes outside
// 0x20-0x7E become '?' in it; the location in front of it goes out as it is. No emitter ever fails
// visibly: what can't be written is dropped.
//
// openlog, syslog, closelog, asprintf and localtime_r live in this namespace beside the C
// library's functions of the same name and do not replace them. The logging state belongs to the
// process and has no lock.
#pragma once

#include <atomic>
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

// Opens the event log under the source name "Quillfence". A log that is open is closed first, and
// the earlier ident is released.
//   ident             first string of every event; copied. Null: nothing happens at all
//   option, facility  accepted and ignored
// An event log that can't be opened leaves syslog without effect.
void openlog(const char *ident, int option, int facility);

// The default log function: reports one event of vc_event_type(priority), category 1 and
// identifier 0x40020100 with the strings ident and text; the text is cut at 1023 characters.
// Does nothing for a null format or while no log is open. Returns 0.
// Kept on purpose: when there is no memory for the text, the log is given back but stays recorded
// as open, so that all later events are lost silently until openlog opens it again.
int syslog(int priority, const char *format, ...) QF_PRINTF_LIKE(2, 3);

// Closes the event log and forgets the ident; nothing when no log is open.
void closelog();

// The event type of a priority: 2 and 3 error, 4 warning, 5 to 7 success, any other warning.
platform::event_type vc_event_type(int priority);

// Installs the log function; null switches all logging off. It also receives what the platform has
// to complain of (platform/complaint.h): the module is "platform" and the line 0, an error is
// priority 3 with the format of an ERROR line, a warning priority 4 with "%s:%d WARNING %s(): %s".
void vc_set_log_function(vc_log_function function);

// Who hears the lines of one thread in place of the process's log function.
struct vc_log_listener {
    vc_log_function log; // never null
};

// The calling thread's listener; null for none.
vc_log_listener *vc_thread_log_listener();
// Installs one for the calling thread; null for none. Borrowed: taken away before it goes. It does
// not hear what the platform complains of.
void vc_set_thread_log_listener(vc_log_listener *listener);

// Installs the function that is called whenever memory has run out: after each ERROR line that is
// the system's text for ENOMEM, also while no log function is installed. Null for none. Whoever
// asks what a check looks at (evidence.h) is told of it, too, as of something that could not be
// looked at.
void vc_set_oom_function(vc_oom_function function);

// Emit one line through the log function, as priority 3 with "%s:%d ERROR %s(): %s" or priority 7
// with "%s:%d DEBUG %s(): %s" and the arguments file, line, function, message. Nothing when the
// function name, the format or the log function is missing.
//   function  the name of the operation that reports
//   file      the name of its module
//   format    of the message; the arguments are formatted only when the line goes out
// DEBUG lines need VERBOSEDEBUG in the environment, with any value, even an empty one. That is
// looked up at the first DEBUG line of the process; later changes are not seen.
void vc_log_error(const char *function, const char *file, unsigned line, const char *format, ...)
    QF_PRINTF_LIKE(4, 5);
void vc_log_debug(const char *function, const char *file, unsigned line, const char *format, ...)
    QF_PRINTF_LIKE(4, 5);

// Whether it is known that nobody wants DEBUG lines.
enum class vc_verbosity : uint8_t { unknown, quiet, verbose };
extern std::atomic<vc_verbosity> __vc_verbosity; // every thread finds out the same
inline bool vc_debug_is_quiet() {
    return __vc_verbosity.load(std::memory_order_relaxed) == vc_verbosity::quiet;
}

// Emits an ERROR line with the system's text for an error number; for ENOMEM, as vc_log_oom.
void vc_log_errno(const char *function, const char *file, unsigned line, int number);

// Emits the message alone, as priority 6 with the format "%s".
void vc_log_info(const char *format, ...) QF_PRINTF_LIKE(1, 2);

// Emits an ERROR line with the system's text for ENOMEM, then calls the out-of-memory function.
// Returns that function's result, 0 when there is none.
int vc_log_oom(const char *function, const char *file, unsigned line);

// Forgets the VERBOSEDEBUG decision, so that it is taken again. For tests.
void __vc_forget_verbosedebug();

// calloc(count, size) that reports a failure with vc_log_oom under the caller's location. Returns
// zeroed memory that the caller frees, or null.
void *vc_calloc(const char *function, const char *file, unsigned line, size_t count, size_t size);

// A log function that writes the line, cut at 255 characters, to standard output with a line end.
// The priority is ignored. Returns what puts returns; EOF for a null format.
int vc_console_log(int priority, const char *format, ...) QF_PRINTF_LIKE(2, 3);

// Replaces every byte outside 0x20-0x7E by '?', in place. Null is accepted.
void vc_sanitize(char *text);

// Formats into a new heap string of at most 1023 characters.
//   destination  holds null or a heap string, which is freed; receives the new string, which the
//                caller frees. The old string may be an argument of the format
// Returns the length, -1 when the text was cut (then its first 1023 characters are in
// *destination all the same) and -1 on failure, which leaves *destination alone.
// ERROR lines: EINVAL for a null destination or format, ENOMEM.
int asprintf(char **destination, const char *format, ...) QF_PRINTF_LIKE(2, 3);

// Local time of UTC seconds since 1970. Returns fields, all nine of them set; null, with the
// fields untouched, when an argument is null or the time can't be converted (ERROR: EINVAL).
// Call it as quillfence::localtime_r: without the qualifier the tm argument brings the C library's
// function into the choice.
tm *localtime_r(const int64_t *seconds, tm *fields);

// A new heap string of the first characters of text, at most length of them; the caller frees it.
// Null, with errno ENOMEM and no line, without memory. ERROR line: EINVAL for a null text.
char *vc_strndup(const char *text, size_t length);

// A dotted IPv4 address as a number in host byte order, 127.0.0.1 as 0x7F000001. What
// vc_inet_addr does not take gives 0xFFFFFFFF.
uint32_t vc_ip_to_host_u32(const char *text);

// Waits in a tight loop for a debugger and stops in it, then returns 0. When the file (or folder)
// "C:/vc_breakpoint_bypass" exists it returns 1 at once. A developer's aid that nothing calls.
int vc_breakpoint();

} // namespace quillfence
