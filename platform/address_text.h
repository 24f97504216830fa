// What both sides of the seam need for addresses as text. Internal to platform/.
#pragma once

#include <cstddef>

namespace quillfence::platform {

// Whether a text has the form that the seam takes for an address of the family; a gate in front
// of the system's own conversion, which is laxer on some systems.
//   IPv4  four decimal numbers of one to three digits, without leading zeros
//   IPv6  hexadecimal digits and colons, with such a dotted quad at most at the end
// Whether the numbers are in range and the groups are complete is left to the system.
bool ipv4_text_is_strict(const char *text);
bool ipv6_text_is_strict(const char *text);

// The 16 bytes of an IPv6 address as text in the form in which Windows writes it:
//   lower case without leading zeros; the longest run of two or more zero groups becomes "::",
//   the first one on a tie;
//   the last four bytes are a dotted quad in IPv4-compatible (::a.b.c.d), IPv4-mapped
//   (::ffff:a.b.c.d) and IPv4-translated (::ffff:0:a.b.c.d) addresses, unless the last group but
//   one is zero (::1), and in ISATAP ones (...:0:5efe:a.b.c.d, ...:200:5efe:a.b.c.d).
// Returns text, null when it does not fit into size bytes.
const char *ipv6_to_text(const unsigned char *address, char *text, size_t size);

} // namespace quillfence::platform
