#include "platform/event_log.h"

#include <cstdlib>

#include "../event_log_file.h"
#include "platform/observer.h"
#include "system.h"

namespace quillfence::platform {

struct event_log {
    file_handle file; // invalid: events go to the system's log
    HANDLE source;
};

static constexpr WORD event_category = 1;

event_log *event_log_open(const char *source) {
    if (observe_call("event_log_open", source)) {
        return nullptr;
    }
    auto *const log = static_cast<event_log *>(calloc(1, sizeof(event_log)));
    if (!log) {
        return nullptr;
    }
    log->file = event_file_open(source);
    if (log->file == invalid_file) {
        log->source = RegisterEventSourceA(nullptr, source);
    }
    if (log->file == invalid_file && !log->source) {
        free(log);
        return nullptr;
    }
    return log;
}

void event_log_close(event_log *log) {
    if (!log) {
        return;
    }
    if (log->file == invalid_file) {
        DeregisterEventSource(log->source);
    } else {
        event_file_close(log->file);
    }
    free(log);
}

void event_log_report(event_log *log, event_type type, uint32_t event_id, const char *ident,
                      const char *message) {
    if (!log || !ident || !message || observe_call("event_log_report", ident)) {
        return;
    }
    if (log->file != invalid_file) {
        event_file_report(log->file, type, ident, message);
        return;
    }
    const char *strings[] = {ident, message};
    ReportEventA(log->source, static_cast<WORD>(type), event_category, event_id, nullptr, 2, 0,
                 strings, nullptr);
}

} // namespace quillfence::platform
