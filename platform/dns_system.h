// What each side of the seam brings to dns.h.
#pragma once

#include <cstdint>

#include "platform/dns.h"

namespace quillfence::platform {

// dns_client_query without observer, stand-in, status and time. *records is null on entry; client
// and details may be null.
uint32_t system_dns_query(dns_client *client, const char *name, uint16_t type, uint32_t options,
                          dns_record **records, dns_details *details);

// Whether a test has put something else in the place of the system.
bool has_dns_stand_in();

} // namespace quillfence::platform
