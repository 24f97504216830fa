// The system's DNS client: DnsQuery_A on Windows, c-ares with the settings of /etc/resolv.conf on
// Linux. There, QUILLFENCE_DNS_SERVER (an address, optionally with :port) names another server.
//
// Statuses are the DnsQuery_A numbers on both: 0 whenever the answer section holds any record,
// 9501 for no records, 9000 + the response code otherwise (9002 SERVFAIL, 9003 NXDOMAIN, 9005
// REFUSED), 1460 for a time-out, 9002 when no server answers.
#pragma once

#include <cstdint>

namespace quillfence::platform {

inline constexpr uint16_t dns_type_a = 1;
inline constexpr uint16_t dns_type_ptr = 12;
inline constexpr uint16_t dns_type_mx = 15;
inline constexpr uint16_t dns_type_aaaa = 28;

inline constexpr uint32_t dns_query_standard = 0;
inline constexpr uint32_t dns_query_tcp_only = 2;

inline constexpr uint32_t dns_status_servfail = 9002;
inline constexpr uint32_t dns_status_nxdomain = 9003;
inline constexpr uint32_t dns_status_refused = 9005;
inline constexpr uint32_t dns_status_no_records = 9501;
inline constexpr uint32_t dns_status_timeout = 1460;

// One record of an answer, in the answer's order.
struct dns_record {
    dns_record *next;
    uint16_t type;
    char *target; // PTR: the name it points to, without the final dot; null for other types
};

// Asks for the records of one type. On status 0 *records is the answer, to be released with
// dns_release; otherwise it is null.
uint32_t dns_query(const char *name, uint16_t type, uint32_t options, dns_record **records);
void dns_release(dns_record *records); // null is accepted

// Replaces dns_query for tests; null restores the system's. The stand-in's records are made with
// dns_new_record and released by dns_release.
using dns_stand_in = uint32_t (*)(const char *name, uint16_t type, uint32_t options,
                                  dns_record **records);
void set_dns_stand_in(dns_stand_in stand_in);
// A record with a copy of the target (may be null); null without memory.
dns_record *dns_new_record(uint16_t type, const char *target);

} // namespace quillfence::platform
