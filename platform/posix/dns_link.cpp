#include "dns_link.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <ares.h>

#include "platform/error_numbers.h"
#include "uninterrupted.h"

namespace quillfence::platform {

static constexpr size_t length_size = 2;
static constexpr size_t in_room = length_size + 65535;

// --- connecting ---

static socklen_t write_address(const ares_addr_port_node &server, sockaddr_storage *address) {
    constexpr int usual_port = 53;
    const auto port = htons(static_cast<uint16_t>(server.tcp_port ? server.tcp_port : usual_port));
    *address = {};
    if (server.family == AF_INET) {
        auto *const made = reinterpret_cast<sockaddr_in *>(address);
        made->sin_family = AF_INET;
        made->sin_port = port;
        made->sin_addr = server.addr.addr4;
        return sizeof *made;
    }
    auto *const made = reinterpret_cast<sockaddr_in6 *>(address);
    made->sin6_family = AF_INET6;
    made->sin6_port = port;
    memcpy(&made->sin6_addr, &server.addr.addr6, sizeof made->sin6_addr);
    return sizeof *made;
}

static bool begin_connecting(const ares_addr_port_node &server, dns_link *link) {
    sockaddr_storage address;
    const socklen_t size = write_address(server, &address);
    link->socket = socket(server.family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (link->socket < 0) {
        return false;
    }
    const int on = 1;
    setsockopt(link->socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const int failed = connect(link->socket, reinterpret_cast<sockaddr *>(&address), size);
    return !failed || errno == EINPROGRESS || errno == EINTR;
}

bool open_dns_link(const ares_addr_port_node &server, dns_link *opened) {
    *opened = {};
    opened->socket = -1;
    opened->in = static_cast<unsigned char *>(malloc(in_room));
    if (opened->in && begin_connecting(server, opened)) {
        return true;
    }
    close_dns_link(opened);
    return false;
}

void close_dns_link(dns_link *link) {
    if (link->socket >= 0) {
        close(link->socket);
    }
    free(link->in);
    free(link->out);
    *link = {};
    link->socket = -1;
}

bool finish_dns_link(dns_link *link) {
    int error = 0;
    socklen_t size = sizeof error;
    link->connected = !getsockopt(link->socket, SOL_SOCKET, SO_ERROR, &error, &size) && !error;
    return link->connected;
}

// --- sending ---

static bool make_room(dns_link *link, size_t wanted) {
    if (wanted <= link->out_room) {
        return true;
    }
    const size_t room = std::max(wanted, 2 * link->out_room);
    void *const grown = realloc(link->out, room);
    if (!grown) {
        return false;
    }
    link->out = static_cast<unsigned char *>(grown);
    link->out_room = room;
    return true;
}

uint32_t put_on_dns_link(dns_link *link, const unsigned char *message, size_t size) {
    if (!make_room(link, link->out_size + length_size + size)) {
        return error_not_enough_memory;
    }
    unsigned char *const end = link->out + link->out_size;
    end[0] = static_cast<unsigned char>(size >> 8);
    end[1] = static_cast<unsigned char>(size);
    memcpy(end + length_size, message, size);
    link->out_size += length_size + size;
    return error_none;
}

bool send_dns_link(dns_link *link) {
    const ssize_t sent = uninterrupted(
        [link] { return send(link->socket, link->out, link->out_size, MSG_NOSIGNAL); });
    if (sent < 0) {
        return errno == EAGAIN || errno == EWOULDBLOCK;
    }
    link->out_size -= static_cast<size_t>(sent);
    memmove(link->out, link->out + sent, link->out_size);
    return true;
}

// --- receiving ---

static size_t length_at(const unsigned char *bytes) {
    return static_cast<size_t>(bytes[0] << 8 | bytes[1]);
}

bool receive_dns_link(dns_link *link) {
    const ssize_t got = uninterrupted([link] {
        return recv(link->socket, link->in + link->in_size, in_room - link->in_size, 0);
    });
    if (got < 0) {
        return errno == EAGAIN || errno == EWOULDBLOCK;
    }
    link->in_size += static_cast<size_t>(got);
    return got > 0;
}

const unsigned char *next_on_dns_link(const dns_link &link, size_t *place, size_t *size) {
    const size_t left = link.in_size - *place;
    if (left < length_size) {
        return nullptr;
    }
    const unsigned char *const message = link.in + *place + length_size;
    *size = length_at(link.in + *place);
    if (left - length_size < *size) {
        return nullptr;
    }
    *place += length_size + *size;
    return message;
}

void drop_taken_of_dns_link(dns_link *link, size_t place) {
    link->in_size -= place;
    memmove(link->in, link->in + place, link->in_size);
}

} // namespace quillfence::platform
