// Address conversions of the operating system. Families are our own numbers: 2 is IPv4, 23 IPv6.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quillfence::platform {

inline constexpr int family_ipv4 = 2;
inline constexpr int family_ipv6 = 23;

// What can go wrong on the way to the system's conversions: on Windows they are found at run time
// in ws2_32.dll, once a process; on Linux they are always there.
enum class net_status : uint8_t { ok, no_library, startup_failed, no_entry };

// Makes the two conversions ready. *error receives the number of a failed start-up.
net_status net_prepare_pton(int *error);
net_status net_prepare_ntop(int *error);

// After the preparation. Text to binary (4 or 16 bytes, network order): true when it converts.
// Both systems take the same texts: IPv4 is a dotted quad of decimal numbers without leading
// zeros; IPv6 groups have at most four digits, and a quad at the end is such a one. No scope, port
// or prefix length. Other families do not convert.
bool net_pton(int family, const char *text, void *binary);
// Binary to text; null when the text does not fit into size bytes. IPv6 text is written by the
// seam's own code on both systems, in the form in which Windows writes it:
//   lower case, no leading zeros; the longest run of two or more zero groups is "::", the first
//   one on a tie;
//   the last four bytes are a dotted quad behind ::, ::ffff: and ::ffff:0: when the last group but
//   one is not zero ("::1" is no quad), and behind 0:5efe: and 200:5efe: always.
const char *net_ntop(int family, const void *binary, char *text, size_t size);

// The platform's inet_addr: network byte order, all ones for a text that it does not take. It
// takes more than net_pton does: fewer than four numbers, octal and hexadecimal ones.
uint32_t net_inet_addr(const char *text);

// Replaces the two preparations for tests; null restores them.
using net_prepare_stand_in = net_status (*)(const char *entry, int *error);
void set_net_prepare_stand_in(net_prepare_stand_in stand_in);

} // namespace quillfence::platform
