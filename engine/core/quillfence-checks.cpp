#include "quillfence-checks.h"

namespace quillfence {} // namespace quillfence
