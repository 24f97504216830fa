// DNS block lists: is the client's IPv4 address listed in a zone?
#pragma once

#include "smtp_state.h"

namespace quillfence {

char *quillfence_rbl_host(const smtp_state *state, const char *zone);
int is_rbl_hit(const smtp_state *state, const char *zone);

} // namespace quillfence
