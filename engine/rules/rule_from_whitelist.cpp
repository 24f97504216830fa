#include "rules.h"

namespace quillfence {} // namespace quillfence
