#include "vc_json.h"

namespace quillfence {} // namespace quillfence
