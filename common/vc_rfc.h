// Judges the strings that an SMTP client hands over: addresses, domains, mail addresses.
#pragma once

#include <cstdint>

#include "vc_list.h"

namespace quillfence {

inline constexpr int vc_family_ipv4 = 2;
inline constexpr int vc_family_ipv6 = 23;

int vc_is_ip(const char *text);
int vc_is_ipv6(const char *text);
int vc_is_unroutable_ip(const char *text);
int is_localhost(const char *text);
int vc_valid_domain(const char *text);
int vc_valid_email_address(const char *text);
int vc_rfc822_email_address(const char *text, uint8_t *bracketed);
char *__vc_parse_quotes(char *text);
int __vc_parse_comment(char *text, char **out);
int __vc_parse_rfc_address(char *text, char **out);
vc_list_entry *vc_split_addresses(const char *header);
char *vc_extract_address_from_mailbox(const char *mailbox);
vc_list_entry *vc_parse_addresses_from_header(const char *header);

} // namespace quillfence
