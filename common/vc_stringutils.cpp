#include "vc_stringutils.h"

namespace quillfence {} // namespace quillfence
