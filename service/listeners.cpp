#include "listeners.h"

#include <charconv>
#include <cstring>
#include <string_view>

namespace quillfence::service {

using namespace platform;

static constexpr std::string_view local_prefix = "unix:";
static constexpr std::string_view tcp_prefix = "inet:";

listeners::~listeners() {
    close();
}

void listeners::close() {
    for (const listener &one : all_) {
        socket_close(one.socket);
        if (!one.path.empty()) {
            remove_local(one.path.c_str());
        }
    }
    all_.clear();
}

std::optional<std::string> listeners::open(const std::string &place, uint32_t mode) {
    if (place.starts_with(local_prefix)) {
        return open_local(place, mode);
    }
    if (place.starts_with(tcp_prefix)) {
        return open_tcp(place);
    }
    return place + ": is neither unix:PATH nor inet:ADDRESS:PORT";
}

// --- Unix sockets -------------------------------------------------------------------------------

static std::string local_error(uint32_t error) {
    switch (error) {
    case error_filename_too_long:
        return "the path of a socket has at most 107 bytes";
    case error_already_exists:
        return "another program listens there";
    case error_file_exists:
        return "what is there is no socket";
    case error_sharing_violation:
        return "the folder is locked by another program";
    default:
        return std::strerror(errno_of(error));
    }
}

std::optional<std::string> listeners::open_local(const std::string &place, uint32_t mode) {
    const std::string path = place.substr(local_prefix.size());
    if (path.empty()) {
        return place + ": names no path";
    }
    all_.reserve(all_.size() + 1);
    socket_handle socket = invalid_socket;
    if (const uint32_t error = listen_local(path.c_str(), mode, &socket)) {
        return place + ": " + local_error(error);
    }
    all_.push_back({socket, path, false});
    return std::nullopt;
}

// --- TCP ----------------------------------------------------------------------------------------

static std::string tcp_error(uint32_t error) {
    switch (error) {
    case error_already_exists:
        return "another program listens there";
    case error_not_supported:
        return "this machine has no such address";
    default:
        return std::strerror(errno_of(error));
    }
}

static std::optional<uint16_t> read_port(std::string_view text) {
    uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool is_whole = error == std::errc() && end == text.data() + text.size();
    return is_whole && port > 0 ? std::optional(port) : std::nullopt;
}

std::optional<std::string> listeners::open_tcp(const std::string &place) {
    const std::string_view rest = std::string_view(place).substr(tcp_prefix.size());
    const size_t colon = rest.rfind(':');
    const auto port =
        colon == std::string_view::npos ? std::nullopt : read_port(rest.substr(colon + 1));
    if (!port) {
        return place + ": has no port from 1 to 65535 behind its address";
    }
    std::string address(rest.substr(0, colon));
    if (address.starts_with('[') && address.ends_with(']')) {
        address = address.substr(1, address.size() - 2);
    }
    if (!is_loopback(address.c_str())) {
        return place + ": is no loopback address, and whoever connects is trusted; take 127.0.0.1, "
                       "[::1] or a Unix socket";
    }
    all_.reserve(all_.size() + 1);
    socket_handle socket = invalid_socket;
    if (const uint32_t error = listen_loopback(address.c_str(), *port, &socket)) {
        return place + ": " + tcp_error(error);
    }
    all_.push_back({socket, "", false});
    return std::nullopt;
}

// --- sockets of the service manager -------------------------------------------------------------

static std::string inherited_error(uint32_t error) {
    switch (error) {
    case error_invalid_handle:
        return "one of them is no listening stream socket";
    case error_access_denied:
        return "one of them listens on an address that is no loopback one, and whoever connects is "
               "trusted";
    case error_insufficient_buffer:
        return "they are too many";
    case error_invalid_parameter:
        return "LISTEN_PID or LISTEN_FDS is no number";
    default:
        return std::strerror(errno_of(error));
    }
}

std::optional<std::string> listeners::inherit() {
    socket_handle sockets[64];
    size_t count = 0;
    if (const uint32_t error = inherited_listeners(sockets, std::size(sockets), &count)) {
        return "the sockets of the service manager: " + inherited_error(error);
    }
    for (size_t i = 0; i < count; ++i) {
        all_.push_back({sockets[i], "", true});
    }
    return std::nullopt;
}

} // namespace quillfence::service
