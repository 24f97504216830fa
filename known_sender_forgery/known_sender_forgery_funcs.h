// Sender domains that are tied to networks.
#pragma once

#include <cstdint>

#include "vc_list.h"

namespace quillfence {

// 1: the client may send for the domain (or nothing restricts it); 0: it may not.
int ksf_check_domain_to_ip_restriction(const char *ip, const char *domain, const char *path);
char *ksf_parse_mail_from_domain(const char *address);

} // namespace quillfence
