#include "tiny_rex.h"

namespace quillfence {} // namespace quillfence
