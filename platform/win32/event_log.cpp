#include "platform/event_log.h"

#include "platform/observer.h"
#include "system.h"

namespace quillfence::platform {

static constexpr WORD event_category = 1;

event_log *event_log_open(const char *source) {
    if (observe_call("event_log_open", source)) {
        return nullptr;
    }
    return static_cast<event_log *>(RegisterEventSourceA(nullptr, source));
}

void event_log_close(event_log *log) {
    if (log) {
        DeregisterEventSource(log);
    }
}

void event_log_report(event_log *log, event_type type, uint32_t event_id, const char *ident,
                      const char *message) {
    if (!log || !ident || !message || observe_call("event_log_report", ident)) {
        return;
    }
    const char *strings[] = {ident, message};
    ReportEventA(log, static_cast<WORD>(type), event_category, event_id, nullptr, 2, 0, strings,
                 nullptr);
}

} // namespace quillfence::platform
