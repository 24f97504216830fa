#include "platform/format.h"

namespace quillfence {} // namespace quillfence
