#include "hook_table.h"

namespace quillfence {} // namespace quillfence
