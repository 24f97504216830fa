#include "vc_dns.h"

namespace quillfence {} // namespace quillfence
