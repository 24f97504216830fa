#include "quillfence-file.h"

namespace quillfence {} // namespace quillfence
