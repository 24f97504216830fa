// DNS questions with small integer answers, and address conversions.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vc_list.h"

namespace quillfence {

int vc_resolv_WIN32(const char *name, uint16_t type, uint8_t option);
int vc_resolv_A(const char *name, uint8_t option);
int vc_has_a_or_mx(const char *domain, uint8_t option);
int vc_arpa(char **out, const char *address);
int vc_lookup_reverse_dns(char ***names, const char *address, uint8_t option, uint8_t first_only);
int vc_inet_pton(int family, const char *text, void *binary);
const char *vc_inet_ntop(int family, const void *binary, char *text, size_t size);
uint32_t vc_inet_addr(const char *text);
// out has room for 64 bytes. 1 or 0.
int vc_compress_ipv6(const char *text, char *out);
int vc_gethostent(const char *address, vc_list_entry **names);

} // namespace quillfence
