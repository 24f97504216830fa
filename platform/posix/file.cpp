#include "platform/file.h"

namespace quillfence {} // namespace quillfence
