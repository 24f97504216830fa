// A TCP connection to a DNS server, and the messages on it. It never waits.
#pragma once

#include <cstddef>
#include <cstdint>

struct ares_addr_port_node;

namespace quillfence::platform {

struct dns_link {
    int socket; // -1: closed
    bool connected;
    unsigned char *in; // received, and not taken yet
    size_t in_size;
    unsigned char *out; // to be sent
    size_t out_size;
    size_t out_room;
};

// Begins to connect. False when that fails at once; then it is closed.
bool open_dns_link(const ares_addr_port_node &server, dns_link *opened);
// Releases what it has. A closed one is accepted.
void close_dns_link(dns_link *link);

// Puts a message behind those to be sent; 0 or 8.
uint32_t put_on_dns_link(dns_link *link, const unsigned char *message, size_t size);
// Sends as much as goes now. False when the connection is gone.
bool send_dns_link(dns_link *link);
// When it may be sent on or has failed: whether it is connected.
bool finish_dns_link(dns_link *link);
// Receives what there is, up to the room for one message of the greatest size. False when the
// connection is gone, or what came can't be a message.
bool receive_dns_link(dns_link *link);

// The next whole message at *place of what was received, which is moved behind it; null when there
// is none. Then drop_taken_of_dns_link() drops what is in front of the place.
const unsigned char *next_on_dns_link(const dns_link &link, size_t *place, size_t *size);
void drop_taken_of_dns_link(dns_link *link, size_t place);

} // namespace quillfence::platform
