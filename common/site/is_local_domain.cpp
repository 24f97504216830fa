#include "is_local_domain.h"

namespace quillfence {} // namespace quillfence
