#include "vc_w32.h"

namespace quillfence {} // namespace quillfence
