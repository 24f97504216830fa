#include "platform/process.h"

namespace quillfence {} // namespace quillfence
