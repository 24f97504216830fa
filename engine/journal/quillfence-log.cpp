#include "quillfence-log.h"

namespace quillfence {} // namespace quillfence
