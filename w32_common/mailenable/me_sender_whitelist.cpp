#include "me_sender_whitelist.h"

namespace quillfence {} // namespace quillfence
