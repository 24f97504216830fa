#include "syslog_socket.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/format.h"
#include "uninterrupted.h"

namespace quillfence::platform {

static constexpr char system_socket[] = "/dev/log";
static constexpr size_t longest_line = 4096; // the NUL included, which ends a line on a stream

static constexpr timeval patience = {0, 100000}; // with a daemon that takes nothing

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; // around the three below
static int daemon_socket = -1;
static bool is_stream;
static bool is_stuck; // a line has waited in vain: none waits until one is taken again
static const char *stand_in;

void set_syslog_stand_in(const char *path) {
    stand_in = path;
}

static void close_socket() {
    if (daemon_socket >= 0) {
        close(daemon_socket);
    }
    daemon_socket = -1;
}

static bool open_socket(int type) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    format_text(address.sun_path, sizeof address.sun_path, "%s",
                stand_in ? stand_in : system_socket);
    daemon_socket = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    if (daemon_socket < 0) {
        return false;
    }
    is_stream = type == SOCK_STREAM;
    setsockopt(daemon_socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience); // connect, too
    const auto *const generic = reinterpret_cast<const sockaddr *>(&address);
    if (uninterrupted([&] { return connect(daemon_socket, generic, sizeof address); }) == 0) {
        return true;
    }
    const int number = errno;
    close_socket();
    errno = number;
    return false;
}

static bool connect_daemon() {
    return open_socket(SOCK_DGRAM) || (errno == EPROTOTYPE && open_socket(SOCK_STREAM));
}

static bool send_once(const char *line, size_t length) {
    const size_t size = length + is_stream;
    const int flags = MSG_NOSIGNAL | (is_stuck ? MSG_DONTWAIT : 0);
    const auto sent = uninterrupted([&] { return send(daemon_socket, line, size, flags); });
    is_stuck = sent < 0 && errno == EAGAIN;
    return sent == static_cast<ssize_t>(size);
}

// A socket that was open may belong to a daemon that has ended since.
static bool send_line(const char *line, size_t length) {
    if (daemon_socket >= 0 && send_once(line, length)) {
        return true;
    }
    if (daemon_socket >= 0 && is_stuck) {
        return false;
    }
    close_socket();
    if (!connect_daemon()) {
        return false;
    }
    if (send_once(line, length)) {
        return true;
    }
    if (!is_stuck) {
        close_socket();
    }
    return false;
}

// The beginning of a line's time, as "Nov  5 08:09:10"; English whatever the locale.
static void format_time(char *text, size_t size) {
    static constexpr char months[][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const time_t now = time(nullptr);
    tm fields = {};
    localtime_r(&now, &fields);
    format_text(text, size, "%s %2d %02d:%02d:%02d", months[fields.tm_mon], fields.tm_mday,
                fields.tm_hour, fields.tm_min, fields.tm_sec);
}

bool syslog_send(int priority, const char *ident, const char *message) {
    char when[64];
    format_time(when, sizeof when);
    char line[longest_line];
    format_text(line, sizeof line, "<%d>%s %s[%d]: %s", priority, when, ident,
                static_cast<int>(getpid()), message);
    pthread_mutex_lock(&lock);
    const bool sent = send_line(line, strlen(line));
    pthread_mutex_unlock(&lock);
    return sent;
}

void syslog_close() {
    pthread_mutex_lock(&lock);
    close_socket();
    pthread_mutex_unlock(&lock);
}

} // namespace quillfence::platform
