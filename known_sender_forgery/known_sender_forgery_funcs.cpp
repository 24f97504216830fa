#include "known_sender_forgery_funcs.h"

namespace quillfence {} // namespace quillfence
