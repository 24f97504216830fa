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
bool net_pton(int family, const char *text, void *binary);
// Binary to text; null when the text does not fit into size bytes.
const char *net_ntop(int family, const void *binary, char *text, size_t size);

// The platform's inet_addr: network byte order, all ones for a text that it does not take.
uint32_t net_inet_addr(const char *text);

// Replaces the two preparations for tests; null restores them.
using net_prepare_stand_in = net_status (*)(const char *entry, int *error);
void set_net_prepare_stand_in(net_prepare_stand_in stand_in);

} // namespace quillfence::platform
