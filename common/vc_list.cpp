#include "vc_list.h"

namespace quillfence {} // namespace quillfence
