// What each side of the seam brings to dns.h.
#pragma once

#include <cstdint>

#include "platform/dns.h"

namespace quillfence::platform {

// dns_query without observer and stand-in. *records is null on entry.
uint32_t system_dns_query(const char *name, uint16_t type, uint32_t options, dns_record **records);

} // namespace quillfence::platform
