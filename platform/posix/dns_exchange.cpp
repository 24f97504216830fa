#include "dns_exchange.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "platform/dns_answer.h"
#include "platform/error_numbers.h"

namespace quillfence::platform {

// --- sockets ---

// c-ares' own writing could raise SIGPIPE on a connection that the server has cut.
static ares_socket_t open_socket(int family, int type, int protocol, void *user) {
    auto *const carried = static_cast<dns_traffic *>(user);
    const int opened = socket(family, type | SOCK_NONBLOCK | SOCK_CLOEXEC, protocol);
    if (opened >= 0 && type == SOCK_STREAM) {
        const int on = 1;
        setsockopt(opened, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        carried->stream = true;
        ++carried->tries;
    } else {
        carried->datagrams = opened;
    }
    return opened;
}

static int close_socket(ares_socket_t open, void *) {
    return close(open);
}

static int connect_socket(ares_socket_t open, const sockaddr *address, socklen_t size, void *) {
    return connect(open, address, size);
}

static ares_ssize_t receive(ares_socket_t open, void *buffer, size_t size, int flags,
                            sockaddr *from, socklen_t *from_size, void *) {
    return recvfrom(open, buffer, size, flags, from, from_size);
}

static ares_ssize_t send_parts(ares_socket_t open, const iovec *parts, int count, void *user) {
    auto *const carried = static_cast<dns_traffic *>(user);
    carried->tries += open == carried->datagrams;
    msghdr message{};
    message.msg_iov = const_cast<iovec *>(parts);
    message.msg_iovlen = static_cast<size_t>(count);
    return sendmsg(open, &message, MSG_NOSIGNAL);
}

static constexpr ares_socket_functions socket_functions = {
    .asocket = open_socket,
    .aclose = close_socket,
    .aconnect = connect_socket,
    .arecvfrom = receive,
    .asendv = send_parts,
};

void use_counted_sockets(ares_channel channel, dns_traffic *carried) {
    ares_set_socket_functions(channel, &socket_functions, carried);
}

// --- the answer ---

static int64_t milliseconds_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

static void note_answer(void *argument, int status, int, unsigned char *message, int size) {
    auto *const result = static_cast<dns_outcome *>(argument);
    result->finished = true;
    if (status == ARES_SUCCESS) {
        result->answered = true;
        result->status =
            read_dns_answer(message, static_cast<size_t>(size), &result->records, result->details);
    } else if (status == ARES_ENOMEM) {
        result->status = error_not_enough_memory;
    } else if (status == ARES_ETIMEOUT || status == ARES_ECANCELLED) {
        result->status = dns_status_timeout;
    } else {
        result->status = dns_status_servfail; // nobody there
    }
}

namespace {

struct waiting {
    pollfd sockets[ARES_GETSOCK_MAXNUM];
    nfds_t count;
    bool connecting; // what c-ares still has to write is waiting for its connection
};

} // namespace

static waiting wanted_sockets(ares_channel channel) {
    ares_socket_t sockets[ARES_GETSOCK_MAXNUM];
    const int wanted = ares_getsock(channel, sockets, ARES_GETSOCK_MAXNUM);
    waiting all{};
    for (unsigned i = 0; i < ARES_GETSOCK_MAXNUM; ++i) {
        const bool read = ARES_GETSOCK_READABLE(wanted, i);
        const bool write = ARES_GETSOCK_WRITABLE(wanted, i);
        if (read || write) {
            const int events = (read ? POLLIN : 0) | (write ? POLLOUT : 0);
            all.sockets[all.count++] = {sockets[i], static_cast<short>(events), 0};
            all.connecting = all.connecting || write;
        }
    }
    return all;
}

// Until a socket is ready, c-ares wants to repeat its question, or this many milliseconds are over.
static void wait_for_sockets(ares_channel channel, waiting *all, int64_t most) {
    timeval longest = {static_cast<time_t>(most / 1000),
                       static_cast<suseconds_t>(most % 1000 * 1000)};
    timeval storage{};
    const timeval *const until = ares_timeout(channel, &longest, &storage);
    poll(all->sockets, all->count,
         static_cast<int>(until->tv_sec * 1000 + (until->tv_usec + 999) / 1000));
}

// Lets c-ares read, write, or see what time it is.
static void process_sockets(ares_channel channel, const waiting &all) {
    constexpr int broken = POLLERR | POLLHUP | POLLNVAL;
    bool ready = false;
    for (nfds_t i = 0; i < all.count; ++i) {
        const pollfd &one = all.sockets[i];
        const bool read = one.revents & (POLLIN | broken);
        const bool write = (one.events & POLLOUT) && (one.revents & (POLLOUT | broken));
        if (read || write) {
            ready = true;
            ares_process_fd(channel, read ? one.fd : ARES_SOCKET_BAD,
                            write ? one.fd : ARES_SOCKET_BAD);
        }
    }
    if (!ready) {
        ares_process_fd(channel, ARES_SOCKET_BAD, ARES_SOCKET_BAD);
    }
}

// One step towards the answer. False when there is nothing to wait for or no time left. The work
// is paid for, too: a server that floods us with what we did not ask for gains no time.
static bool go_on(ares_channel channel, dns_time *budget) {
    const int64_t started = milliseconds_now();
    waiting all = wanted_sockets(channel);
    int64_t *const left = all.connecting ? &budget->connecting : &budget->answering;
    if (all.count == 0 || *left <= 0 || budget->both <= 0) {
        return false;
    }
    wait_for_sockets(channel, &all, std::min(*left, budget->both));
    process_sockets(channel, all);
    const int64_t spent = milliseconds_now() - started;
    *left -= spent;
    budget->both -= spent;
    return true;
}

// Lets c-ares see that a connection has been closed since the last question. Whether one is left.
bool has_connection(ares_channel channel) {
    waiting all = wanted_sockets(channel);
    if (all.count > 0 && poll(all.sockets, all.count, 0) > 0) {
        process_sockets(channel, all);
    }
    return wanted_sockets(channel).count > 0;
}

dns_outcome ask_dns_server(ares_channel channel, const dns_question &asked, dns_time *budget,
                           dns_details *details) {
    dns_outcome result{};
    result.details = details;
    ares_send(channel, asked.bytes, static_cast<int>(asked.size), note_answer, &result);
    while (!result.finished && go_on(channel, budget)) {
    }
    if (!result.finished) {
        ares_cancel(channel);
    }
    return result;
}

} // namespace quillfence::platform
