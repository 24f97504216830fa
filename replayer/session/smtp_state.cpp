#include "smtp_state.h"

namespace quillfence {} // namespace quillfence
