#include "dns_server.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstring>
#include <system_error>

#include <ares.h>

#include "platform/format.h"

namespace quillfence::platform {

static bool parse_port(const char *text, int *port) {
    const char *const end = text + strlen(text);
    const auto [stopped, error] = std::from_chars(text, end, *port);
    return error == std::errc() && stopped == end && *port > 0 && *port < 65536;
}

// Cuts "address:port" or "[address]:port" in place. A bare IPv6 address has colons of its own.
static bool split_port(char *text, char **address, int *port) {
    *address = text;
    *port = 0;
    char *colon = strrchr(text, ':');
    if (*text == '[') {
        char *const bracket = strchr(text, ']');
        if (!bracket || (bracket[1] && bracket[1] != ':')) {
            return false;
        }
        *address = text + 1;
        *bracket = '\0';
        colon = bracket[1] ? bracket + 1 : nullptr;
    } else if (colon != strchr(text, ':')) {
        colon = nullptr;
    }
    if (!colon) {
        return true;
    }
    *colon = '\0';
    return parse_port(colon + 1, port);
}

bool parse_dns_server(char *text, ares_addr_port_node *server) {
    char *address = nullptr;
    int port = 0;
    if (!split_port(text, &address, &port)) {
        return false;
    }
    *server = {};
    server->udp_port = server->tcp_port = port;
    server->family = AF_INET;
    if (inet_pton(AF_INET, address, &server->addr) == 1) {
        return true;
    }
    server->family = AF_INET6;
    return inet_pton(AF_INET6, address, &server->addr) == 1;
}

void write_dns_server(const ares_addr_port_node &server, bool tcp, char *text, size_t size) {
    constexpr int usual_port = 53;
    char address[INET6_ADDRSTRLEN] = "";
    inet_ntop(server.family, &server.addr, address, sizeof address);
    const int port = tcp ? server.tcp_port : server.udp_port;
    format_text(text, size, server.family == AF_INET6 ? "[%s]:%d" : "%s:%d", address,
                port ? port : usual_port);
}

} // namespace quillfence::platform
