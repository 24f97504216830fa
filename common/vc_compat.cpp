#include "vc_compat.h"

namespace quillfence {} // namespace quillfence
