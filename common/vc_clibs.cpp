#include "vc_clibs.h"

namespace quillfence {} // namespace quillfence
