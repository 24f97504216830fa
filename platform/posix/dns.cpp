#include "platform/dns.h"

namespace quillfence {} // namespace quillfence
