#include "vc_rfc.h"

namespace quillfence {} // namespace quillfence
