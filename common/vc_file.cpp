#include "vc_file.h"

namespace quillfence {} // namespace quillfence
