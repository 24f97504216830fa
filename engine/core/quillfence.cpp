#include "quillfence.h"

namespace quillfence {} // namespace quillfence
