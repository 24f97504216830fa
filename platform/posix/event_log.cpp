#include "platform/event_log.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include "errors.h"
#include "letter_case.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "platform/format.h"
#include "platform/observer.h"
#include "syslog_socket.h"
#include "system_path.h"

namespace quillfence::platform {

struct event_log {
    file_handle file; // invalid: events go to syslog
};

static constexpr size_t longest_line = 4096;

namespace {

struct type_row {
    event_type type;
    int priority;
    const char *word;
};

} // namespace

static constexpr type_row type_rows[] = {
    {event_type::success, LOG_INFO, "success"},
    {event_type::error, LOG_ERR, "error"},
    {event_type::warning, LOG_WARNING, "warning"},
};

static const type_row &row_of(event_type type) {
    for (const type_row &row : type_rows) {
        if (row.type == type) {
            return row;
        }
    }
    return type_rows[0];
}

static uint32_t open_log_file(const char *path, file_handle *file) {
    system_path resolved;
    if (const uint32_t failure = resolve_path(path, &resolved)) {
        return failure;
    }
    settle_case(&resolved);
    return call_with_path(&resolved, [&] {
        const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY;
        *file = open(resolved.text, flags, 0666);
        return *file;
    });
}

// One write a line, so that the lines of several processes do not mix.
static bool write_line(file_handle file, const char *word, const char *ident, const char *message) {
    char line[longest_line];
    if (format_text(line, sizeof line - 1, "%s %s: %s", word, ident, message) < 0) {
        line[sizeof line - 2] = '\0'; // cut
    }
    for (char *c = line; *c; ++c) {
        if (*c == '\n' || *c == '\r') {
            *c = ' ';
        }
    }
    const size_t length = strlen(line);
    line[length] = '\n';
    uint32_t written = 0;
    return file_write(file, line, static_cast<uint32_t>(length + 1), &written) == error_none &&
           written == length + 1;
}

// The log of the path that the environment names; standard error for "-", and for a file that can't
// be opened, which is said there.
static file_handle log_of(const char *path, const char *source) {
    if (strcmp(path, "-") == 0) {
        return STDERR_FILENO;
    }
    file_handle file = invalid_file;
    if (const uint32_t error = open_log_file(path, &file)) {
        char message[longest_line];
        format_text(message, sizeof message, "QUILLFENCE_EVENT_LOG can't be opened (%s): %s",
                    strerror(errno_of_error(error)), path);
        write_line(STDERR_FILENO, "error", source, message);
        return STDERR_FILENO;
    }
    return file;
}

static bool report_to(const event_log &log, const type_row &row, const char *ident,
                      const char *message) {
    return log.file == invalid_file ? syslog_send(LOG_MAIL | row.priority, ident, message)
                                    : write_line(log.file, row.word, ident, message);
}

event_log *event_log_open(const char *source) {
    if (observe_call("event_log_open", source)) {
        return nullptr;
    }
    auto *const log = static_cast<event_log *>(calloc(1, sizeof(event_log)));
    if (!log) {
        return nullptr;
    }
    log->file = invalid_file;
    const char *const path = getenv("QUILLFENCE_EVENT_LOG");
    if (path && *path) {
        log->file = log_of(path, source);
    }
    return log;
}

void event_log_close(event_log *log) {
    if (!log) {
        return;
    }
    if (log->file == invalid_file) {
        syslog_close();
    } else if (log->file != STDERR_FILENO) {
        close(static_cast<int>(log->file));
    }
    free(log);
}

void event_log_report(event_log *log, event_type type, uint32_t event_id, const char *ident,
                      const char *message) {
    (void)event_id; // names the message text in the Windows event log
    if (!log || !ident || !message || observe_call("event_log_report", ident)) {
        return;
    }
    const type_row &row = row_of(type);
    if (!report_to(*log, row, ident, message) && log->file != STDERR_FILENO) {
        write_line(STDERR_FILENO, row.word, ident, message);
    }
}

} // namespace quillfence::platform
