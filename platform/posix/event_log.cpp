#include "platform/event_log.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include "platform/file.h"
#include "platform/format.h"
#include "platform/observer.h"
#include "system_path.h"

namespace quillfence::platform {

struct event_log {
    file_handle file; // invalid: events go to syslog
    char ident[64];   // syslog's tag; it keeps the pointer
};

namespace {

constexpr size_t longest_line = 4096;

struct type_row {
    event_type type;
    int priority;
    const char *word;
};

constexpr type_row type_rows[] = {
    {event_type::success, LOG_INFO, "success"},
    {event_type::error, LOG_ERR, "error"},
    {event_type::warning, LOG_WARNING, "warning"},
};

const type_row &row_of(event_type type) {
    for (const type_row &row : type_rows) {
        if (row.type == type) {
            return row;
        }
    }
    return type_rows[0];
}

file_handle open_log_file(const char *path) {
    if (strcmp(path, "-") == 0) {
        return STDERR_FILENO;
    }
    system_path resolved;
    if (resolve_path(path, &resolved) != 0) {
        return invalid_file;
    }
    return open(resolved.text, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0666);
}

// One write a line, so that the lines of several processes do not mix.
void write_line(file_handle file, const char *word, const char *ident, const char *message) {
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
    file_write(file, line, static_cast<uint32_t>(length + 1), &written);
}

void send_to_syslog(event_log *log, int priority, const char *ident, const char *message) {
    if (strcmp(log->ident, ident) != 0) {
        format_text(log->ident, sizeof log->ident, "%s", ident);
        openlog(log->ident, LOG_PID, LOG_MAIL);
    }
    syslog(LOG_MAIL | priority, "%s", message);
}

} // namespace

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
        log->file = open_log_file(path);
        if (log->file == invalid_file) {
            free(log);
            return nullptr;
        }
    }
    return log;
}

void event_log_close(event_log *log) {
    if (!log) {
        return;
    }
    if (log->file == invalid_file) {
        closelog();
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
    if (log->file == invalid_file) {
        send_to_syslog(log, row.priority, ident, message);
    } else {
        write_line(log->file, row.word, ident, message);
    }
}

} // namespace quillfence::platform
