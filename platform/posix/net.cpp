#include "platform/net.h"

namespace quillfence {} // namespace quillfence
