#include "vc_w32.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "evidence.h"
#include "platform/clock.h"
#include "platform/complaint.h"
#include "platform/error_numbers.h"
#include "platform/process.h"
#include "platform/thread_slot.h"
#include "vc_dns.h"
#include "vc_file.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "vc_w32";

static constexpr size_t message_size = 256; // a line's message, NUL included
static constexpr size_t event_size = 1024;  // an event's or asprintf's text, NUL included
static constexpr uint32_t event_identifier = 0x40020100;
static constexpr char event_source_name[] = "Quillfence";
static constexpr char breakpoint_bypass[] = "C:/vc_breakpoint_bypass";

static constexpr char error_line[] = "%s:%d ERROR %s(): %s";
static constexpr char debug_line[] = "%s:%d DEBUG %s(): %s";
static constexpr char warning_line[] = "%s:%d WARNING %s(): %s";
static constexpr char platform_module[] = "platform";

namespace {

// While log is set, the source counts as open.
struct event_source {
    platform::event_log *log;
    char *ident;
    bool deregistered; // given back after a failed allocation, yet still counted as open
};

} // namespace

static event_source source;
static vc_log_function log_function;
static vc_oom_function oom_function;
std::atomic<vc_verbosity> __vc_verbosity = vc_verbosity::unknown;

// Who hears this thread's lines; null for nobody.
static vc_log_function listener() {
    const vc_log_listener *const own = vc_thread_log_listener();
    return own ? own->log : log_function;
}

// Builds the message and hands the line to the listener, of whom there must be one.
static void emit_line(int priority, const char *line_format, const log_place &where,
                      const char *format, va_list arguments) {
    char message[message_size] = {};
    platform::vformat_text(message, sizeof message, format, arguments);
    vc_sanitize(message);
    listener()(priority, line_format, text_or_null(where.file), static_cast<int>(where.line),
               where.function, message);
}

static bool debug_lines_wanted() {
    vc_verbosity wanted = __vc_verbosity.load(std::memory_order_relaxed);
    if (wanted == vc_verbosity::unknown) {
        wanted =
            platform::environment_has("VERBOSEDEBUG") ? vc_verbosity::verbose : vc_verbosity::quiet;
        __vc_verbosity.store(wanted, std::memory_order_relaxed);
    }
    return wanted == vc_verbosity::verbose;
}

void openlog(const char *ident, int, int) {
    if (!ident) {
        return;
    }
    closelog();
    free(source.ident);
    source.ident = strdup(ident);
    source.log = platform::event_log_open(event_source_name);
}

int syslog(int priority, const char *format, ...) {
    if (!format || !source.log || source.deregistered) {
        return 0;
    }
    heap_string message(static_cast<char *>(calloc(event_size, 1)));
    if (!message) {
        // Kept on purpose: the log is given back but stays recorded as open, so that all later
        // events are lost silently until openlog opens it again.
        platform::event_log_close(source.log);
        source.deregistered = true;
        return 0;
    }
    va_list arguments;
    va_start(arguments, format);
    platform::vformat_text(message.get(), event_size, format, arguments);
    va_end(arguments);
    platform::event_log_report(source.log, vc_event_type(priority), event_identifier,
                               text_or_null(source.ident), message.get());
    return 0;
}

void closelog() {
    if (!source.log) {
        return;
    }
    if (!source.deregistered) {
        platform::event_log_close(source.log);
    }
    free(source.ident);
    source = {};
}

platform::event_type vc_event_type(int priority) {
    switch (priority) {
    case priority_critical:
    case priority_error:
        return platform::event_type::error;
    case priority_notice:
    case priority_information:
    case priority_debug:
        return platform::event_type::success;
    default:
        return platform::event_type::warning;
    }
}

// What the platform complains of, as a line of its own module. The text is longer than that of
// other lines, so that a path is seen to its end.
static void log_complaint(platform::event_type type, const char *function, const char *message) {
    if (!log_function) {
        return;
    }
    char text[event_size];
    platform::format_text(text, sizeof text, "%s", message);
    vc_sanitize(text);
    const bool error = type == platform::event_type::error;
    log_function(error ? priority_error : priority_warning, error ? error_line : warning_line,
                 platform_module, 0, function, text);
}

void vc_set_log_function(vc_log_function function) {
    log_function = function;
    platform::set_complaint_listener(function ? log_complaint : nullptr);
}

vc_log_listener *vc_thread_log_listener() {
    return static_cast<vc_log_listener *>(
        platform::thread_slot_get(platform::thread_slot::log_listener));
}

void vc_set_thread_log_listener(vc_log_listener *listener) {
    platform::thread_slot_set(platform::thread_slot::log_listener, listener);
}

void vc_set_oom_function(vc_oom_function function) {
    oom_function = function;
}

// The line's text as the log gets it, to whoever asks.
static void tell_error(const log_place &where, const char *format, va_list arguments) {
    char message[message_size] = {};
    platform::vformat_text(message, sizeof message, format, arguments);
    vc_sanitize(message);
    tell(&evidence_sink::wrote_error, {text_or_null(where.file), where.function, message});
}

void vc_log_error(const char *function, const char *file, unsigned line, const char *format, ...) {
    if (!function || !format) {
        return;
    }
    va_list arguments;
    if (asked()) {
        va_start(arguments, format);
        tell_error({function, file, line}, format, arguments);
        va_end(arguments);
    }
    if (!listener()) {
        return;
    }
    va_start(arguments, format);
    emit_line(priority_error, error_line, {function, file, line}, format, arguments);
    va_end(arguments);
}

void vc_log_debug(const char *function, const char *file, unsigned line, const char *format, ...) {
    if (!debug_lines_wanted() || !listener() || !function || !format) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    emit_line(priority_debug, debug_line, {function, file, line}, format, arguments);
    va_end(arguments);
}

void vc_log_info(const char *format, ...) {
    if (!listener() || !format) {
        return;
    }
    char message[message_size] = {};
    va_list arguments;
    va_start(arguments, format);
    platform::vformat_text(message, sizeof message, format, arguments);
    va_end(arguments);
    vc_sanitize(message);
    listener()(priority_information, "%s", message);
}

int vc_log_oom(const char *function, const char *file, unsigned line) {
    vc_log_error(function, file, line, "%s", strerror(ENOMEM));
    tell(&evidence_sink::could_not_look,
         {.what = function, .error = platform::error_not_enough_memory, .reason = "no memory"});
    return oom_function ? oom_function() : 0;
}

void vc_log_errno(const char *function, const char *file, unsigned line, int number) {
    if (number == ENOMEM) {
        vc_log_oom(function, file, line);
    } else {
        vc_log_error(function, file, line, "%s", strerror(number));
    }
}

void __vc_forget_verbosedebug() {
    __vc_verbosity = vc_verbosity::unknown;
}

void *vc_calloc(const char *function, const char *file, unsigned line, size_t count, size_t size) {
    void *block = calloc(count, size);
    if (!block) {
        vc_log_oom(function, file, line);
    }
    return block;
}

int vc_console_log(int, const char *format, ...) {
    if (!format) {
        return EOF;
    }
    char text[message_size] = {};
    va_list arguments;
    va_start(arguments, format);
    platform::vformat_text(text, sizeof text, format, arguments);
    va_end(arguments);
    return puts(text);
}

void vc_sanitize(char *text) {
    for (; !is_empty(text); ++text) {
        if (!is_printable(*text)) {
            *text = '?';
        }
    }
}

int asprintf(char **destination, const char *format, ...) {
    if (!destination || !format) {
        QF_EINVAL();
        return -1;
    }
    heap_string text(static_cast<char *>(malloc(event_size)));
    if (!text) {
        QF_ENOMEM();
        return -1;
    }
    va_list arguments;
    va_start(arguments, format);
    const int count = platform::vformat_text(text.get(), event_size, format, arguments);
    va_end(arguments);
    free(*destination);
    *destination = text.release();
    return count;
}

tm *localtime_r(const int64_t *seconds, tm *fields) {
    tm converted = {};
    if (!seconds || !fields || !platform::local_time(*seconds, &converted)) {
        QF_EINVAL();
        return nullptr;
    }
    *fields = converted;
    return fields;
}

char *vc_strndup(const char *text, size_t length) {
    if (!text) {
        QF_EINVAL();
        return nullptr;
    }
    const size_t kept = strnlen(text, length);
    char *copy = static_cast<char *>(malloc(kept + 1));
    if (!copy) {
        errno = ENOMEM;
        return nullptr;
    }
    memcpy(copy, text, kept);
    copy[kept] = '\0';
    return copy;
}

uint32_t vc_ip_to_host_u32(const char *text) {
    const uint32_t network_order = vc_inet_addr(text);
    unsigned char octets[sizeof network_order];
    memcpy(octets, &network_order, sizeof octets);
    return static_cast<uint32_t>(octets[0]) << 24 | static_cast<uint32_t>(octets[1]) << 16 |
           static_cast<uint32_t>(octets[2]) << 8 | octets[3];
}

int vc_breakpoint() {
    if (vc_file_exists_ex(breakpoint_bypass, vc_type_file) ||
        vc_file_exists_ex(breakpoint_bypass, vc_type_directory)) {
        return 1;
    }
    while (!platform::debugger_present()) {
    }
    platform::debugger_break();
    return 0;
}

} // namespace quillfence
