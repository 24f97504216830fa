#include "platform/dynamic_library.h"

namespace quillfence {} // namespace quillfence
