// DNS questions with small integer answers, and address conversions. Source name "vc_dns".
//
// Answer codes of the name queries:
//    0  found
//    1  the name does not exist
//    2  the lookup failed, or no memory
//   -1  the name is not a valid domain (vc_has_a_or_mx only)
//   -2  invalid argument
//
// "Does not exist" are the statuses 9003 (NXDOMAIN), 9005 (REFUSED), 9008, 9010, 9601, 9602, 9606,
// 9706 and 9714; every other one but 0 is a failure. Kept on purpose: a refused query counts as
// non-existence, while a name without records of the type counts as a failed lookup.
//
// A question goes to the DNS source of the calling thread's context, or to the system when there is
// none (call_context.h); each attempt is told as dns_answered to whoever asks (evidence.h), and a
// lack of memory, for the answer or for its details, as could_not_look.
//
// `option` is the engine's DNS option byte: non-zero asks over TCP only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vc_list.h"

namespace quillfence {

enum vc_dns_answer : int {
    vc_dns_found = 0,
    vc_dns_no_name = 1,
    vc_dns_failed = 2,
    vc_dns_invalid_domain = -1, // of a name query
    vc_dns_no_ptr = -1,         // of vc_lookup_reverse_dns
    vc_dns_invalid_argument = -2,
};

// What the engine makes of a status of platform::dns_query: vc_dns_found, vc_dns_no_name or
// vc_dns_failed.
int vc_dns_code(uint32_t status);

// Asks whether records of one type exist; the records themselves are dropped. A null or empty
// name: ERROR EINVAL, -2.
int vc_resolv_WIN32(const char *name, uint16_t type, uint8_t option);

// Asks for A, then, unless that is found, for AAAA. 0 if either is found; if both give the same
// code, that code; else 2. Each query reports for itself.
int vc_resolv_A(const char *name, uint8_t option);

// Asks whether the domain has an address or a mail exchanger, as an absolute name. So 1 means
// that neither exists. Null or empty: ERROR EINVAL, -2. Not vc_valid_domain: -1 without a query.
// No memory: ERROR "out of memory error resolving A/MX for %s", 2.
int vc_has_a_or_mx(const char *domain, uint8_t option);

// The reverse-lookup name of an address, with its final dot: "1.2.0.192.in-addr.arpa.", or 32
// nibbles and "ip6.arpa.". On success *out is a new string and the old one is freed; otherwise it
// stays. 1 or 0. ERROR "Address is not an IP", EINVAL for a null out, ENOMEM.
int vc_arpa(char **out, const char *address);

// The names that an address resolves back to, in the answer's order. Asks up to three times
// unless there is an answer.
//   names       the list, a null-terminated array of heap strings; replaced (and the old one
//               freed with its strings) only when the result is 0, and then never empty
//   first_only  1: only the first name; 0: all
// Names are cut at 1023 bytes; empty ones are left out.
// 0 found; 1 does not exist; 2 bad address, three failed attempts or no memory (ERROR ENOMEM);
// -1 an answer without any name; -2 with ERROR EINVAL for null names, a null or empty address or
// first_only above 1.
int vc_lookup_reverse_dns(char ***names, const char *address, uint8_t option, uint8_t first_only);

// Text to binary (4 or 16 bytes, network order) and back; family is 2 or 23. Without the system's
// conversions: ERROR "Error ws2_32.dll cannot be loaded", "WSAStartup error: %d" or "Error could
// not locate inet_pton in ws2_32.dll" (inet_ntop). Another family or a null pointer: ERROR EINVAL.
// pton: 1 converted, 0 not. ntop: text, or null also when size bytes are too few.
int vc_inet_pton(int family, const char *text, void *binary);
const char *vc_inet_ntop(int family, const void *binary, char *text, size_t size);

// What the platform's inet_addr makes of a dotted text: network byte order, all ones when it is
// none (and with ERROR EINVAL for a null text).
uint32_t vc_inet_addr(const char *text);

inline constexpr size_t vc_ipv6_text_size = 64;
// The canonical compressed form of an IPv6 text; out has room for 64 bytes. 1, or 0 with ERROR
// EINVAL for a null pointer or a text that is no IPv6 address, or "failed to convert structure
// back to string".
int vc_compress_ipv6(const char *text, char *out);

// Appends the names that the system's hosts file gives an address to a list of strings, and
// returns how many; -1 with an ERROR line when nothing can be looked up ("Address[%s] is not an
// IP", "Failed to open %s", "Error locking mutex: %d", "Cannot retrieve system directory: [%d]\n"),
// or without memory, with the names appended so far left in the list. A line that holds something
// else than an address: ERROR "Address[%s] in /etc/hosts is not an IP", and the line is skipped.
// Lines are read in pieces of up to 1023 bytes; kept on purpose: a piece without "#" or line end
// is skipped, so a last line without a line end does not count. ERROR "Error unlocking mutex: %d"
// changes nothing about the result.
int vc_gethostent(const char *address, vc_list_entry **names);

} // namespace quillfence
