#include "qfd-packet.h"

namespace quillfence {} // namespace quillfence
