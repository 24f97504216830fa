#include "platform/observer.h"

namespace quillfence {} // namespace quillfence
