#include "tiny_rex_storage.h"

namespace quillfence {} // namespace quillfence
