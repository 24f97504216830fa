#include "platform/interruption.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "errors.h"
#include "platform/error_numbers.h"

namespace quillfence::platform {

namespace {

constexpr int signals[] = {SIGINT, SIGTERM};
constexpr int signal_count = 2;

struct sigaction before[signal_count];
int wakening[2] = {-1, -1}; // a pipe that has a byte once a wish has come
std::atomic<bool> noted;

// A second signal finds what was there before in place again.
void on_signal(int signal) {
    const int number = errno;
    for (int i = 0; i < signal_count; ++i) {
        if (signals[i] == signal) {
            sigaction(signal, &before[i], nullptr);
        }
    }
    interruption_note();
    errno = number;
}

void listen_to(int signal, struct sigaction *old) {
    sigaction(signal, nullptr, old);
    if (old->sa_handler == SIG_IGN) {
        return;
    }
    struct sigaction wanted {};
    wanted.sa_handler = on_signal;
    wanted.sa_flags = SA_RESTART;
    sigemptyset(&wanted.sa_mask);
    sigaction(signal, &wanted, nullptr);
}

void close_pipe() {
    for (int &end : wakening) {
        if (end >= 0) {
            close(end);
        }
        end = -1;
    }
}

} // namespace

uint32_t interruption_listen() {
    close_pipe();
    noted = false;
    if (pipe2(wakening, O_CLOEXEC | O_NONBLOCK) != 0) {
        return error_of_errno(errno);
    }
    for (int i = 0; i < signal_count; ++i) {
        listen_to(signals[i], &before[i]);
    }
    return error_none;
}

void interruption_ignore() {
    for (int i = 0; i < signal_count; ++i) {
        sigaction(signals[i], &before[i], nullptr);
    }
    close_pipe();
    noted = false;
}

bool interruption_noted() {
    return noted;
}

void interruption_note() {
    noted = true;
    const ssize_t written = write(wakening[1], "", 1);
    static_cast<void>(written); // a full pipe wakes as well
}

intptr_t interruption_descriptor() {
    return wakening[0];
}

uint32_t file_read_unless_interrupted(file_handle file, void *buffer, uint32_t size,
                                      uint32_t *moved) {
    *moved = 0;
    pollfd both[] = {{static_cast<int>(file), POLLIN, 0}, {wakening[0], POLLIN, 0}};
    int ready = 0;
    do {
        ready = poll(both, 2, -1);
    } while (ready < 0 && errno == EINTR && !noted);
    if (noted) {
        return error_operation_aborted;
    }
    return file_read(file, buffer, size, moved);
}

} // namespace quillfence::platform
