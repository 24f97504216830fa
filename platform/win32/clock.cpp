#include "platform/clock.h"

namespace quillfence {} // namespace quillfence
