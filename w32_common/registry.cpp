#include "registry.h"

namespace quillfence {} // namespace quillfence
