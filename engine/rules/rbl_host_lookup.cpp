#include "rbl_host_lookup.h"

namespace quillfence {} // namespace quillfence
