#include "vcspamrule.h"

namespace quillfence {} // namespace quillfence
