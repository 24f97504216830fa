#include "platform/service_signals.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "errors.h"
#include "platform/error_numbers.h"
#include "platform/interruption.h"
#include "platform/observer.h"
#include "uninterrupted.h"

namespace quillfence::platform {

// --- SIGHUP -------------------------------------------------------------------------------------

static struct sigaction before;
static bool listening;
static int wakening[2] = {-1, -1}; // a pipe that has bytes while one has come and was not taken

static void on_hang_up(int) {
    const int number = errno;
    const ssize_t put = write(wakening[1], "", 1);
    static_cast<void>(put); // a full pipe tells it as well
    errno = number;
}

void outlive_file_limit() {
    signal(SIGXFSZ, SIG_IGN);
}

uint32_t hang_up_listen() {
    hang_up_ignore();
    if (pipe2(wakening, O_CLOEXEC | O_NONBLOCK) != 0) {
        return error_of_errno(errno);
    }
    struct sigaction wanted {};
    wanted.sa_handler = on_hang_up;
    wanted.sa_flags = SA_RESTART;
    sigemptyset(&wanted.sa_mask);
    sigaction(SIGHUP, &wanted, &before);
    listening = true;
    return error_none;
}

void hang_up_ignore() {
    if (!listening) {
        return;
    }
    sigaction(SIGHUP, &before, nullptr);
    listening = false;
    for (int &end : wakening) {
        close(end);
        end = -1;
    }
}

bool hang_up_taken() {
    char bytes[64];
    bool came = false;
    while (uninterrupted([&] { return read(wakening[0], bytes, sizeof bytes); }) > 0) {
        came = true;
    }
    return came;
}

intptr_t hang_up_descriptor() {
    return wakening[0];
}

// --- waiting for a stream -----------------------------------------------------------------------

awaited await_input(file_handle input) {
    pollfd all[] = {{static_cast<int>(input), POLLIN, 0},
                    {static_cast<int>(interruption_descriptor()), POLLIN, 0},
                    {wakening[0], POLLIN, 0}};
    while (poll(all, 3, -1) < 0 && errno == EINTR) {
    }
    return all[1].revents   ? awaited::interruption
           : all[2].revents ? awaited::hang_up
                            : awaited::input;
}

// --- the service manager ------------------------------------------------------------------------

uint32_t tell_service_manager(const char *state) {
    const char *const name = getenv("NOTIFY_SOCKET");
    if (!name || !*name) {
        return error_none;
    }
    if (const uint32_t failure = observe_call("tell_service_manager", state)) {
        return failure;
    }
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const size_t length = strlen(name);
    if (length >= sizeof address.sun_path) {
        return error_filename_too_long;
    }
    memcpy(address.sun_path, name, length);
    if (*name == '@') {
        address.sun_path[0] = '\0';
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        return error_of_errno(errno);
    }
    const ssize_t sent = uninterrupted([&] {
        return sendto(descriptor, state, strlen(state), MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr *>(&address), size);
    });
    const uint32_t failure = sent < 0 ? error_of_errno(errno) : error_none;
    close(descriptor);
    return failure;
}

} // namespace quillfence::platform
