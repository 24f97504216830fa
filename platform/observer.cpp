#include "platform/observer.h"

namespace quillfence::platform {

static call_observer installed_observer;

void set_call_observer(call_observer observer) {
    installed_observer = observer;
}

uint32_t observe_call(const char *call, const char *subject) {
    return installed_observer ? installed_observer(call, subject ? subject : "") : 0;
}

} // namespace quillfence::platform
