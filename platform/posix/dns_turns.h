// How a question's time is shared between servers, and which server's result counts. dns.h tells
// the limits.
#pragma once

#include <algorithm>
#include <cstdint>

#include <ares.h>

#include "dns_exchange.h"
#include "platform/dns.h"

namespace quillfence::platform {

// Milliseconds.
inline constexpr int64_t dns_connect_limit = 3000;
inline constexpr int64_t dns_answer_limit = 3000;
inline constexpr int dns_tcp_attempts = 3; // connections, when the server cuts them
inline constexpr int dns_servers_max = 3;

// All of a question's time; a negative limit is none.
inline dns_time dns_time_within(int64_t limit) {
    const int64_t both = dns_connect_limit + dns_answer_limit;
    return {dns_connect_limit, dns_answer_limit, limit < 0 ? both : std::min(both, limit)};
}

// What a server gets of it: half, the last one all.
inline dns_time dns_time_of_server(const dns_time &left, bool is_last) {
    const int parts = is_last ? 1 : 2;
    return {left.connecting / parts, left.answering / parts, left.both / parts};
}

// Whether another server may know better than one with this result.
bool dns_passes_on(const dns_outcome &result);
// Whether a result takes the place of the best one so far: one that is not passed on does, else the
// first answer, else the first silence. "Nobody there" (dns_nobody) is what there is before.
bool dns_is_better(const dns_outcome &result, const dns_outcome &best);
dns_outcome dns_nobody();

// The servers to ask: the one that the text names in the form of QUILLFENCE_DNS_SERVER; with null
// that of the environment, or those of the system's settings. 0, 87 or 8. The list is released with
// ares_free_data.
uint32_t list_dns_servers(const char *server, ares_addr_port_node **list);

} // namespace quillfence::platform
