#include "platform/event_log.h"

namespace quillfence {} // namespace quillfence
