// A DNS server as text.
#pragma once

#include <cstddef>

struct ares_addr_port_node;

namespace quillfence::platform {

// Reads "address", "address:port" or "[address]:port" and cuts the text on the way. False when it
// is none of them. Without a port the server's is 0, which stands for the usual one.
bool parse_dns_server(char *text, ares_addr_port_node *server);

// "192.0.2.1:53" or "[2001:db8::1]:53".
void write_dns_server(const ares_addr_port_node &server, bool tcp, char *text, size_t size);

} // namespace quillfence::platform
