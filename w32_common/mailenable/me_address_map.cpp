#include "me_address_map.h"

namespace quillfence {} // namespace quillfence
