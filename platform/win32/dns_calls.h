// The two calls of dnsapi.dll that the DNS client consists of, replaceable for its test.
#pragma once

#include <winsock2.h>

#include <windns.h>

namespace quillfence::platform {

struct dns_calls {
    DNS_STATUS(WINAPI *query)
    (PCSTR name, WORD type, DWORD options, PIP4_ARRAY servers, PDNS_RECORD *records,
     PVOID *reserved);
    void(WINAPI *release)(PVOID records, DNS_FREE_TYPE type);
};

// Null restores the system's; borrowed.
void set_dns_calls(const dns_calls *calls);

} // namespace quillfence::platform
