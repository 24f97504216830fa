// The IP whitelist of Mail Enable's SMTP connector.
#pragma once

namespace quillfence {

// Whether the connector's whitelist is switched on and holds the client's address: 1, else 0. An
// address is in it when a value of the key "White List" has it as its name, or when the name is a
// pattern: "192.0.2.*" is every address from 192.0.2.0 to 192.0.2.255. Names of more than 64
// characters are passed over, as are patterns whose ends are no IPv4 addresses; one that is wider
// than a /16 never matches (qf_ip_in_range).
// Both keys are read in the registry's 32-bit view. While the whitelist is off the second one is
// not opened. Without Mail Enable: 0, without a line.
// ERROR lines of "w32_common/me_ip_whitelist": EINVAL for an empty address, ENOMEM.
int is_mailenable_ip_whitelist(const char *ip);

} // namespace quillfence
