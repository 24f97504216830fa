// DNS block lists: is the client's IPv4 address listed in a zone? Source name "rbl_host_lookup".
// Every failure is an ERROR line and "not listed": a list that can't be asked lists nobody.
#pragma once

#include "smtp_state.h"

namespace quillfence {

// The name to ask for: the parts of the client's address in reverse order, the zone and a final
// dot, which makes it absolute: "1.2.0.192.zone." for 192.0.2.1. A new heap string that the caller
// frees, or null. The address needs exactly four parts, none of them empty, so an IPv6 client is
// never looked up; otherwise they are taken as they are, cut at three characters.
// ERROR lines: "Provided state does not have a valid IP address" (null session, null or empty
// address), "Provided RBL list is not valid" (null or empty zone), "Failed to parse ip address for
// octets" (another number of parts), "Failed to parse ip address into octets" (an empty part), and
// without memory "Failed to copy IP Address string", "Failed to parse ip address for octets",
// "Failed reversing IP address" or "Failed generating rbl lookup string".
char *quillfence_rbl_host(const smtp_state *state, const char *zone);

// Asks for the name: 1 listed, 0 not listed or not asked. Kept on purpose: any A or AAAA record
// means listed, whatever address it holds.
// ERROR lines: "Provided state does not have a valid IP address" (null session, address or zone),
// "Failure generating RBL host string".
int is_rbl_hit(const smtp_state *state, const char *zone);

} // namespace quillfence
