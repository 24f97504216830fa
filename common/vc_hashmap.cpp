#include "vc_hashmap.h"

namespace quillfence {} // namespace quillfence
