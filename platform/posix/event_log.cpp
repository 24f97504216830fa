#include "platform/event_log.h"

#include <cstdlib>
#include <syslog.h>

#include "../event_log_file.h"
#include "platform/observer.h"
#include "syslog_socket.h"

namespace quillfence::platform {

struct event_log {
    file_handle file; // invalid: events go to syslog
};

static int priority_of(event_type type) {
    switch (type) {
    case event_type::error:
        return LOG_ERR;
    case event_type::warning:
        return LOG_WARNING;
    default:
        return LOG_INFO;
    }
}

event_log *event_log_open(const char *source) {
    if (observe_call("event_log_open", source)) {
        return nullptr;
    }
    auto *const log = static_cast<event_log *>(calloc(1, sizeof(event_log)));
    if (log) {
        log->file = event_file_open(source);
    }
    return log;
}

void event_log_close(event_log *log) {
    if (!log) {
        return;
    }
    if (log->file == invalid_file) {
        syslog_close();
    } else {
        event_file_close(log->file);
    }
    free(log);
}

void event_log_report(event_log *log, event_type type, uint32_t event_id, const char *ident,
                      const char *message) {
    (void)event_id; // names the message text in the Windows event log
    if (!log || !ident || !message || observe_call("event_log_report", ident)) {
        return;
    }
    if (log->file != invalid_file) {
        event_file_report(log->file, type, ident, message);
    } else if (!syslog_send(LOG_MAIL | priority_of(type), ident, message)) {
        event_file_report(file_standard_error(), type, ident, message);
    }
}

} // namespace quillfence::platform
