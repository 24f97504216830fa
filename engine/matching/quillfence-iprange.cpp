#include "quillfence-iprange.h"

namespace quillfence {} // namespace quillfence
