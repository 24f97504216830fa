#include "platform/directory.h"

namespace quillfence {} // namespace quillfence
