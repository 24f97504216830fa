#include "platform/listening.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "errors.h"
#include "platform/observer.h"
#include "uninterrupted.h"

namespace quillfence::platform {

static constexpr int first_inherited = 3; // where a service manager puts them

static int descriptor_of(socket_handle socket) {
    return static_cast<int>(socket);
}

static uint32_t error_of_socket(int number) {
    switch (number) {
    case EAGAIN:
        return error_would_wait;
    case EADDRINUSE:
        return error_already_exists;
    case EAFNOSUPPORT:
    case EADDRNOTAVAIL:
        return error_not_supported;
    case ENOBUFS:
        return error_not_enough_memory;
    default:
        return error_of_errno(number);
    }
}

void socket_close(socket_handle socket) {
    if (socket != invalid_socket) {
        close(descriptor_of(socket));
    }
}

// --- a Unix socket ------------------------------------------------------------------------------

// What bind() and connect() take.
static const sockaddr *generic(const sockaddr_un &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}

static bool local_address(const char *path, sockaddr_un *address) {
    *address = {};
    address->sun_family = AF_UNIX;
    const size_t length = strlen(path);
    if (length >= sizeof address->sun_path) {
        return false;
    }
    memcpy(address->sun_path, path, length);
    return true;
}

static int stream_socket(int family) {
    return socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

// Whether somebody listens, by trying: 183 then, 0 when nobody does.
static uint32_t probe(const sockaddr_un &address) {
    const int descriptor = stream_socket(AF_UNIX);
    if (descriptor < 0) {
        return error_of_socket(errno);
    }
    const int result =
        uninterrupted([&] { return connect(descriptor, generic(address), sizeof address); });
    const int number = result == 0 ? 0 : errno;
    close(descriptor);
    switch (number) {
    case ECONNREFUSED:
    case ENOENT:
        return error_none;
    case 0:
    case EAGAIN:     // so many wait there that one more finds no room
    case EPROTOTYPE: // it is somebody's socket of another kind
        return error_already_exists;
    default:
        return error_of_socket(number);
    }
}

static uint32_t remove_left_over(const sockaddr_un &address) {
    struct stat found;
    if (lstat(address.sun_path, &found) != 0) {
        return errno == ENOENT ? error_none : error_of_errno(errno);
    }
    if (!S_ISSOCK(found.st_mode)) {
        return error_file_exists;
    }
    if (const uint32_t failure = probe(address)) {
        return failure;
    }
    return unlink(address.sun_path) == 0 || errno == ENOENT ? error_none : error_of_errno(errno);
}

// The folder of a path, opened and locked; -1 with errno when that can't be.
static int lock_folder(const sockaddr_un &address) {
    char folder[sizeof address.sun_path];
    memcpy(folder, address.sun_path, sizeof folder);
    char *const slash = strrchr(folder, '/');
    if (slash) {
        slash[slash == folder] = '\0';
    }
    const int descriptor = open(slash ? folder : ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    constexpr int patience = 200; // times 10 ms
    for (int i = 0; descriptor >= 0 && i < patience; ++i) {
        if (flock(descriptor, LOCK_EX | LOCK_NB) == 0) {
            return descriptor;
        }
        usleep(10'000);
    }
    if (descriptor >= 0) {
        close(descriptor);
        errno = ETXTBSY; // 32
    }
    return -1;
}

template <class step_type>
static uint32_t in_locked_folder(const sockaddr_un &address, step_type step) {
    const int folder = lock_folder(address);
    if (folder < 0) {
        return error_of_errno_for(errno, address.sun_path);
    }
    const uint32_t failure = step();
    close(folder);
    return failure;
}

static uint32_t bind_local(int descriptor, const sockaddr_un &address, uint32_t mode) {
    const mode_t before = umask(~static_cast<mode_t>(mode) & 0777);
    const int result = bind(descriptor, generic(address), sizeof address);
    const int number = errno;
    umask(before);
    if (result != 0) {
        return error_of_socket(number);
    }
    if (listen(descriptor, SOMAXCONN) != 0) {
        const int refused = errno;
        unlink(address.sun_path);
        return error_of_socket(refused);
    }
    return error_none;
}

static uint32_t finish_listening(int descriptor, uint32_t failure, socket_handle *listener) {
    if (failure) {
        close(descriptor);
        return failure;
    }
    *listener = descriptor;
    return error_none;
}

uint32_t listen_local(const char *path, uint32_t mode, socket_handle *listener) {
    *listener = invalid_socket;
    if (const uint32_t failure = observe_call("listen_local", path)) {
        return failure;
    }
    sockaddr_un address;
    if (!*path || !local_address(path, &address)) {
        return *path ? error_filename_too_long : error_path_not_found;
    }
    const int descriptor = stream_socket(AF_UNIX);
    if (descriptor < 0) {
        return error_of_socket(errno);
    }
    const uint32_t failure = in_locked_folder(address, [&] {
        const uint32_t left = remove_left_over(address);
        return left ? left : bind_local(descriptor, address, mode);
    });
    return finish_listening(descriptor, failure, listener);
}

uint32_t remove_local(const char *path) {
    if (const uint32_t failure = observe_call("remove_local", path)) {
        return failure;
    }
    sockaddr_un address;
    if (!local_address(path, &address)) {
        return error_filename_too_long;
    }
    return in_locked_folder(address, [&] { return remove_left_over(address); });
}

// --- TCP ----------------------------------------------------------------------------------------

namespace {

union any_address {
    sockaddr generic;
    sockaddr_in ipv4;
    sockaddr_in6 ipv6;
    sockaddr_storage storage;
};

} // namespace

static bool is_loopback_address(const any_address &address) {
    switch (address.generic.sa_family) {
    case AF_INET:
        return ntohl(address.ipv4.sin_addr.s_addr) >> 24 == 127;
    case AF_INET6:
        return IN6_IS_ADDR_LOOPBACK(&address.ipv6.sin6_addr);
    default:
        return false;
    }
}

static bool parse_address(const char *text, uint16_t port, any_address *address) {
    *address = {};
    if (inet_pton(AF_INET, text, &address->ipv4.sin_addr) == 1) {
        address->ipv4.sin_family = AF_INET;
        address->ipv4.sin_port = htons(port);
        return true;
    }
    if (inet_pton(AF_INET6, text, &address->ipv6.sin6_addr) == 1) {
        address->ipv6.sin6_family = AF_INET6;
        address->ipv6.sin6_port = htons(port);
        return true;
    }
    return false;
}

static socklen_t size_of(const any_address &address) {
    return address.generic.sa_family == AF_INET ? sizeof address.ipv4 : sizeof address.ipv6;
}

bool is_loopback(const char *address) {
    any_address parsed;
    return parse_address(address, 0, &parsed) && is_loopback_address(parsed);
}

static uint32_t bind_loopback(int descriptor, const any_address &address) {
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(descriptor, &address.generic, size_of(address)) != 0 ||
        listen(descriptor, SOMAXCONN) != 0) {
        return error_of_socket(errno);
    }
    return error_none;
}

uint32_t listen_loopback(const char *address, uint16_t port, socket_handle *listener) {
    *listener = invalid_socket;
    if (const uint32_t failure = observe_call("listen_loopback", address)) {
        return failure;
    }
    any_address parsed;
    if (!parse_address(address, port, &parsed) || !is_loopback_address(parsed)) {
        return error_invalid_parameter;
    }
    const int descriptor = stream_socket(parsed.generic.sa_family);
    if (descriptor < 0) {
        return error_of_socket(errno);
    }
    return finish_listening(descriptor, bind_loopback(descriptor, parsed), listener);
}

static any_address address_of(int descriptor) {
    any_address address = {};
    socklen_t size = sizeof address;
    if (getsockname(descriptor, &address.generic, &size) != 0) {
        return {};
    }
    return address;
}

uint16_t listening_port(socket_handle listener) {
    const any_address address = address_of(descriptor_of(listener));
    switch (address.generic.sa_family) {
    case AF_INET:
        return ntohs(address.ipv4.sin_port);
    case AF_INET6:
        return ntohs(address.ipv6.sin6_port);
    default:
        return 0;
    }
}

// The system's own part of the way is waited for.
static uint32_t connect_to(const sockaddr *address, socklen_t size, socket_handle *connected) {
    *connected = invalid_socket;
    const int descriptor = socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        return error_of_socket(errno);
    }
    if (uninterrupted([&] { return connect(descriptor, address, size); }) != 0 ||
        fcntl(descriptor, F_SETFL, O_NONBLOCK) != 0) {
        const int number = errno;
        close(descriptor);
        return error_of_socket(number);
    }
    *connected = descriptor;
    return error_none;
}

uint32_t connect_local(const char *path, socket_handle *connected) {
    sockaddr_un address;
    *connected = invalid_socket;
    return local_address(path, &address) ? connect_to(generic(address), sizeof address, connected)
                                         : error_filename_too_long;
}

uint32_t connect_loopback(const char *address, uint16_t port, socket_handle *connected) {
    any_address parsed;
    *connected = invalid_socket;
    if (!parse_address(address, port, &parsed) || !is_loopback_address(parsed)) {
        return error_invalid_parameter;
    }
    return connect_to(&parsed.generic, size_of(parsed), connected);
}

// --- sockets of the service manager -------------------------------------------------------------

static bool read_number(const char *text, long *number) {
    char *end = nullptr;
    errno = 0;
    *number = strtol(text, &end, 10);
    return *text >= '0' && *text <= '9' && !*end && errno == 0 && *number <= INT_MAX;
}

static uint32_t inherited_count(size_t *count) {
    const char *const process = getenv("LISTEN_PID");
    const char *const sockets = getenv("LISTEN_FDS");
    long number = 0;
    if (!process || !sockets) {
        return error_none;
    }
    if (!read_number(process, &number)) {
        return error_invalid_parameter;
    }
    if (number != getpid()) {
        return error_none;
    }
    if (!read_number(sockets, &number)) {
        return error_invalid_parameter;
    }
    *count = static_cast<size_t>(number);
    return error_none;
}

static bool socket_says(int descriptor, int option, int wanted) {
    int value = 0;
    socklen_t size = sizeof value;
    return getsockopt(descriptor, SOL_SOCKET, option, &value, &size) == 0 && value == wanted;
}

static uint32_t take_inherited(int descriptor) {
    if (!socket_says(descriptor, SO_TYPE, SOCK_STREAM) ||
        !socket_says(descriptor, SO_ACCEPTCONN, 1)) {
        return error_invalid_handle;
    }
    const any_address address = address_of(descriptor);
    if (address.generic.sa_family != AF_UNIX && !is_loopback_address(address)) {
        return error_access_denied;
    }
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags < 0 || fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) != 0 ||
        fcntl(descriptor, F_SETFD, FD_CLOEXEC) != 0) {
        return error_of_errno(errno);
    }
    return error_none;
}

uint32_t inherited_listeners(socket_handle *listeners, size_t room, size_t *count) {
    *count = 0;
    if (const uint32_t failure = observe_call("inherited_listeners", "")) {
        return failure;
    }
    size_t told = 0;
    const uint32_t wrong = inherited_count(&told);
    for (const char *name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) {
        unsetenv(name);
    }
    if (wrong || told > room) {
        return wrong ? wrong : error_insufficient_buffer;
    }
    for (size_t i = 0; i < told; ++i) {
        const int descriptor = first_inherited + static_cast<int>(i);
        if (const uint32_t failure = take_inherited(descriptor)) {
            return failure;
        }
        listeners[i] = descriptor;
    }
    *count = told;
    return error_none;
}

// --- connections --------------------------------------------------------------------------------

// What accept() says of a connection that has gone, or of its network.
static bool is_passed_over(int number) {
    return number == EINTR || number == ECONNABORTED || number == EPROTO || number == ENETDOWN ||
           number == EHOSTUNREACH || number == ENETUNREACH;
}

uint32_t socket_accept(socket_handle listener, socket_handle *accepted) {
    *accepted = invalid_socket;
    if (const uint32_t failure = observe_call("socket_accept", "")) {
        return failure;
    }
    int descriptor = -1;
    do {
        descriptor =
            accept4(descriptor_of(listener), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    } while (descriptor < 0 && is_passed_over(errno));
    if (descriptor < 0) {
        return error_of_socket(errno);
    }
    *accepted = descriptor;
    return error_none;
}

uint32_t socket_receive(socket_handle socket, void *bytes, uint32_t size, uint32_t *got) {
    *got = 0;
    if (const uint32_t failure = observe_transfer("socket_receive", &size)) {
        return failure;
    }
    const ssize_t received =
        uninterrupted([&] { return recv(descriptor_of(socket), bytes, size, 0); });
    if (received < 0) {
        return error_of_socket(errno);
    }
    *got = static_cast<uint32_t>(received);
    return error_none;
}

uint32_t socket_send(socket_handle socket, const void *bytes, uint32_t size, uint32_t *put) {
    *put = 0;
    if (const uint32_t failure = observe_transfer("socket_send", &size)) {
        return failure;
    }
    const ssize_t sent =
        uninterrupted([&] { return send(descriptor_of(socket), bytes, size, MSG_NOSIGNAL); });
    if (sent < 0) {
        return error_of_socket(errno);
    }
    *put = static_cast<uint32_t>(sent);
    return error_none;
}

size_t allow_descriptors(size_t wanted) {
    rlimit limit = {};
    if (observe_call("allow_descriptors", "") || getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return 0;
    }
    if (limit.rlim_cur < wanted) {
        const rlim_t before = limit.rlim_cur;
        limit.rlim_cur = std::min<rlim_t>(wanted, limit.rlim_max);
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            return before;
        }
    }
    return limit.rlim_cur;
}

} // namespace quillfence::platform
