#include "quillfence-spam-hooks.h"

namespace quillfence {} // namespace quillfence
