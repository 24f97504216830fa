#include "vc_nulltermlist.h"

namespace quillfence {} // namespace quillfence
