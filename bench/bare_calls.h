// System calls with nothing around them, for a benchmark that wants to know what the calls alone
// cost, or that is the other side of a socket. The one file outside platform/ that may include an
// operating system's headers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace quillfence::bare {

inline int open_for_reading(const char *path) {
    return open(path, O_RDONLY | O_CLOEXEC);
}
inline int open_new(const char *path) {
    return open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
}
inline bool exists(const char *path) {
    struct stat status;
    return stat(path, &status) == 0;
}
inline bool has_size(int file) {
    struct stat status;
    return fstat(file, &status) == 0;
}
inline bool read_at(int file, void *buffer, size_t size, uint32_t place) {
    return pread(file, buffer, size, place) == static_cast<ssize_t>(size);
}
inline void close_file(int file) {
    close(file);
}

// Connected sockets; -1 when nobody listens there.
inline int connect_to_path(const char *path) {
    sockaddr_un there{};
    there.sun_family = AF_UNIX;
    strncpy(there.sun_path, path, sizeof there.sun_path - 1);
    const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(made, reinterpret_cast<const sockaddr *>(&there), sizeof there) == 0)
        return made;
    close(made);
    return -1;
}
inline int connect_to_port(const char *ipv4, uint16_t port) {
    sockaddr_in there{};
    there.sin_family = AF_INET;
    there.sin_port = htons(port);
    inet_pton(AF_INET, ipv4, &there.sin_addr);
    const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int now = 1; // a request is one piece: nothing to wait for
    setsockopt(made, IPPROTO_TCP, TCP_NODELAY, &now, sizeof now);
    if (connect(made, reinterpret_cast<const sockaddr *>(&there), sizeof there) == 0)
        return made;
    close(made);
    return -1;
}
// A socket that others connect to; -1 when it can't be made.
inline int listen_at_path(const char *path) {
    sockaddr_un here{};
    here.sun_family = AF_UNIX;
    strncpy(here.sun_path, path, sizeof here.sun_path - 1);
    unlink(path);
    const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(made, reinterpret_cast<const sockaddr *>(&here), sizeof here) == 0 &&
        chmod(path, 0666) == 0 && listen(made, SOMAXCONN) == 0)
        return made;
    close(made);
    return -1;
}
// -1 for a failure.
inline int accept_from(int listening) {
    return accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
}
inline bool send_all(int socket, const void *bytes, size_t size) {
    return send(socket, bytes, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}
// 0 at the end, below 0 for a failure.
inline ptrdiff_t receive_some(int socket, void *buffer, size_t size) {
    return recv(socket, buffer, size, 0);
}

// Which of many sockets have something to read.
inline int new_watch() {
    return epoll_create1(EPOLL_CLOEXEC);
}
inline bool watch_for_reading(int watch, int socket, uint32_t name) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u32 = name;
    return epoll_ctl(watch, EPOLL_CTL_ADD, socket, &event) == 0;
}
// The names of those that are readable, after at most this many nanoseconds (below 0: no limit);
// how many they are, below 0 for a failure.
template <size_t most>
inline int wait_for_reading(int watch, uint32_t (&names)[most], int64_t nanoseconds) {
    epoll_event events[most];
    const timespec limit = {static_cast<time_t>(nanoseconds / 1'000'000'000),
                            static_cast<long>(nanoseconds % 1'000'000'000)};
    const int count =
        epoll_pwait2(watch, events, most, nanoseconds < 0 ? nullptr : &limit, nullptr);
    for (int i = 0; i < count; i++)
        names[i] = events[i].data.u32;
    return count;
}

} // namespace quillfence::bare
