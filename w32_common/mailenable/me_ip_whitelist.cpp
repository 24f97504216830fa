#include "me_ip_whitelist.h"

namespace quillfence {} // namespace quillfence
