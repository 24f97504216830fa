// What both sides of the seam need for addresses as text. Internal to platform/.
#pragma once

#include <cstddef>

namespace quillfence::platform {

// The four bytes of an address that is written as four decimal numbers up to 255 without leading
// zeros. False for any other text, and address stays as it is. The systems' own conversions are
// slower, and laxer in places.
bool ipv4_from_text(const char *text, unsigned char *address);

// Whether a text has the form that the seam takes for an IPv6 address, a gate in front of the
// system's own conversion, which is laxer on some systems: hexadecimal digits and colons, with a
// dotted quad as above at most at the end, behind a colon. Whether the groups are complete is left
// to the system.
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
