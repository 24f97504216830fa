// The IP whitelist of Mail Enable's SMTP connector.
#pragma once

namespace quillfence {

int is_mailenable_ip_whitelist(const char *ip);

} // namespace quillfence
