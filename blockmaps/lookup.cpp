#include "lookup.h"

namespace quillfence {} // namespace quillfence
