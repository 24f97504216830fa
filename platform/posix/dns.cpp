// The DNS client on Linux: c-ares carries the messages, dns_answer.h reads them. Every query sets
// up and takes down its own channel, so a run without queries never looks at resolv.conf, a
// change of settings is seen at once, and threads share nothing.
#include "../dns_system.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <charconv>
#include <cstring>
#include <ctime>

#include <ares.h>

#include "platform/dns_answer.h"
#include "platform/error_numbers.h"
#include "platform/process.h"

namespace quillfence::platform {

namespace {

// Milliseconds. dns.h tells what they mean.
constexpr int64_t connect_limit = 3000;
constexpr int64_t answer_limit = 3000;
constexpr int udp_repeat_after = 1000;
constexpr int tcp_repeat_after = 60000; // never within the limits: TCP repeats by itself
constexpr int udp_attempts = 2;
constexpr int tcp_attempts = 3; // connections, when the server cuts them
constexpr int max_servers = 3;

// What a query may still spend.
struct time_budget {
    int64_t connecting;
    int64_t answering;
};

struct question {
    unsigned char bytes[512];
    size_t size;
};

// What came of a question to one server.
struct outcome {
    bool finished;
    bool answered; // by a message of the server
    uint32_t status;
    dns_record *records;
};

int64_t milliseconds_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// --- the question ---

// The name in wire form; a final dot makes no difference. False for a name that can't be asked.
bool put_name(const char *name, question *out) {
    constexpr size_t max_label = 63;
    constexpr size_t max_name = 255;
    const size_t start = out->size;
    if (!strcmp(name, ".")) {
        name = "";
    } else if (!*name) {
        return false;
    }
    while (*name) {
        const size_t length = strcspn(name, ".");
        if (length == 0 || length > max_label || out->size - start + length + 2 > max_name) {
            return false;
        }
        out->bytes[out->size++] = static_cast<unsigned char>(length);
        memcpy(out->bytes + out->size, name, length);
        out->size += length;
        name += length + (name[length] == '.');
    }
    out->bytes[out->size++] = 0;
    return true;
}

void put_u16(unsigned value, question *out) {
    out->bytes[out->size++] = static_cast<unsigned char>(value >> 8);
    out->bytes[out->size++] = static_cast<unsigned char>(value);
}

uint32_t make_question(const char *name, uint16_t type, question *out) {
    constexpr unsigned recursion_desired = 0x0100;
    constexpr unsigned class_internet = 1;
    uint16_t identifier = 0;
    if (getrandom(&identifier, sizeof identifier, 0) != sizeof identifier) {
        return error_gen_failure;
    }
    out->size = 0;
    put_u16(identifier, out);
    put_u16(recursion_desired, out);
    put_u16(1, out); // one question, nothing else
    put_u16(0, out);
    put_u16(0, out);
    put_u16(0, out);
    if (!put_name(name, out)) {
        return error_invalid_name;
    }
    put_u16(type, out);
    put_u16(class_internet, out);
    return error_none;
}

// --- the server of QUILLFENCE_DNS_SERVER ---

bool parse_port(const char *text, int *port) {
    const char *const end = text + strlen(text);
    const auto [stopped, error] = std::from_chars(text, end, *port);
    return error == std::errc() && stopped == end && *port > 0 && *port < 65536;
}

// Cuts "address:port" or "[address]:port" in place. A bare IPv6 address has colons of its own.
bool split_port(char *text, char **address, int *port) {
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

bool parse_server(char *text, ares_addr_port_node *server) {
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

// --- sockets ---

// c-ares' own writing could raise SIGPIPE on a connection that the server has cut.
ares_socket_t open_socket(int family, int type, int protocol, void *) {
    const int opened = socket(family, type | SOCK_NONBLOCK | SOCK_CLOEXEC, protocol);
    if (opened >= 0 && type == SOCK_STREAM) {
        const int on = 1;
        setsockopt(opened, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    return opened;
}

int close_socket(ares_socket_t open, void *) {
    return close(open);
}

int connect_socket(ares_socket_t open, const sockaddr *address, socklen_t size, void *) {
    return connect(open, address, size);
}

ares_ssize_t receive(ares_socket_t open, void *buffer, size_t size, int flags, sockaddr *from,
                     socklen_t *from_size, void *) {
    return recvfrom(open, buffer, size, flags, from, from_size);
}

ares_ssize_t send_parts(ares_socket_t open, const iovec *parts, int count, void *) {
    msghdr message{};
    message.msg_iov = const_cast<iovec *>(parts);
    message.msg_iovlen = static_cast<size_t>(count);
    return sendmsg(open, &message, MSG_NOSIGNAL);
}

constexpr ares_socket_functions socket_functions = {
    .asocket = open_socket,
    .aclose = close_socket,
    .aconnect = connect_socket,
    .arecvfrom = receive,
    .asendv = send_parts,
};

// --- one server ---

void note_answer(void *argument, int status, int, unsigned char *message, int size) {
    auto *const result = static_cast<outcome *>(argument);
    result->finished = true;
    if (status == ARES_SUCCESS) {
        result->answered = true;
        result->status = read_dns_answer(message, static_cast<size_t>(size), &result->records);
    } else if (status == ARES_ENOMEM) {
        result->status = error_not_enough_memory;
    } else if (status == ARES_ETIMEOUT || status == ARES_ECANCELLED) {
        result->status = dns_status_timeout;
    } else {
        result->status = dns_status_servfail; // nobody there
    }
}

struct waiting {
    pollfd sockets[ARES_GETSOCK_MAXNUM];
    nfds_t count;
    bool connecting; // what c-ares still has to write is waiting for its connection
};

waiting wanted_sockets(ares_channel channel) {
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
void wait_for_sockets(ares_channel channel, waiting *all, int64_t most) {
    timeval longest = {static_cast<time_t>(most / 1000),
                       static_cast<suseconds_t>(most % 1000 * 1000)};
    timeval storage{};
    const timeval *const until = ares_timeout(channel, &longest, &storage);
    poll(all->sockets, all->count,
         static_cast<int>(until->tv_sec * 1000 + (until->tv_usec + 999) / 1000));
}

// Lets c-ares read, write, or see what time it is.
void process_sockets(ares_channel channel, const waiting &all) {
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
bool go_on(ares_channel channel, time_budget *budget) {
    const int64_t started = milliseconds_now();
    waiting all = wanted_sockets(channel);
    int64_t *const left = all.connecting ? &budget->connecting : &budget->answering;
    if (all.count == 0 || *left <= 0) {
        return false;
    }
    wait_for_sockets(channel, &all, *left);
    process_sockets(channel, all);
    *left -= milliseconds_now() - started;
    return true;
}

outcome ask_server(ares_channel channel, const question &asked, time_budget *budget) {
    outcome result{};
    ares_send(channel, asked.bytes, static_cast<int>(asked.size), note_answer, &result);
    while (!result.finished && go_on(channel, budget)) {
    }
    if (!result.finished) {
        ares_cancel(channel);
    }
    return result;
}

// --- all servers ---

// Another server may know better than one with this result.
bool passes_on(const outcome &result) {
    constexpr uint32_t not_implemented = dns_status_rcode_base + 4;
    return !result.answered || result.status == dns_status_servfail ||
           result.status == not_implemented || result.status == dns_status_refused ||
           result.status == dns_status_bad_packet;
}

uint32_t ask_servers(ares_channel channel, const question &asked,
                     const ares_addr_port_node *servers, dns_record **records) {
    int count = 0;
    for (const auto *server = servers; server && count < max_servers; server = server->next) {
        ++count;
    }
    time_budget left = {connect_limit, answer_limit};
    outcome best{};
    best.status = dns_status_servfail;
    for (int i = 0; i < count; ++i, servers = servers->next) {
        ares_addr_port_node one = *servers;
        one.next = nullptr;
        // A single server is left as it was read: a link-local address keeps its interface.
        if (count > 1 && ares_set_servers_ports(channel, &one) != ARES_SUCCESS) {
            return error_not_enough_memory;
        }
        const int parts = i + 1 < count ? 2 : 1;
        const time_budget given = {left.connecting / parts, left.answering / parts};
        time_budget rest = given;
        const outcome result = ask_server(channel, asked, &rest);
        if (!passes_on(result) || result.status == error_not_enough_memory) {
            *records = result.records;
            return result.status;
        }
        left.connecting -= given.connecting - rest.connecting;
        left.answering -= given.answering - rest.answering;
        const bool silent = result.status == dns_status_timeout;
        if (!best.answered && (result.answered || silent)) {
            best = result;
        }
    }
    return best.status;
}

uint32_t open_channel(uint32_t options, ares_channel *channel) {
    const bool tcp = options & dns_query_tcp_only;
    char lookups[] = "b"; // DNS alone
    ares_options wanted{};
    wanted.flags = ARES_FLAG_NOSEARCH | ARES_FLAG_NOALIASES | ARES_FLAG_NOCHECKRESP |
                   (tcp ? ARES_FLAG_USEVC : 0);
    wanted.timeout = tcp ? tcp_repeat_after : udp_repeat_after;
    wanted.tries = tcp ? tcp_attempts : udp_attempts;
    wanted.lookups = lookups;
    const int given = ARES_OPT_FLAGS | ARES_OPT_TIMEOUTMS | ARES_OPT_TRIES | ARES_OPT_LOOKUPS |
                      ARES_OPT_DOMAINS | ARES_OPT_NOROTATE;
    static const int library = ares_library_init(ARES_LIB_INIT_ALL);
    if (library != ARES_SUCCESS || ares_init_options(channel, &wanted, given) != ARES_SUCCESS) {
        return error_not_enough_memory;
    }
    ares_set_socket_functions(*channel, &socket_functions, nullptr);
    return error_none;
}

// The servers to ask, in order; to be released with ares_free_data.
uint32_t choose_servers(ares_channel channel, ares_addr_port_node **servers) {
    char text[128];
    if (const uint32_t length = environment_variable("QUILLFENCE_DNS_SERVER", text, sizeof text)) {
        ares_addr_port_node server;
        if (length >= sizeof text || !parse_server(text, &server)) {
            return error_invalid_parameter;
        }
        if (ares_set_servers_ports(channel, &server) != ARES_SUCCESS) {
            return error_not_enough_memory;
        }
    }
    return ares_get_servers_ports(channel, servers) == ARES_SUCCESS ? error_none
                                                                    : error_not_enough_memory;
}

} // namespace

uint32_t system_dns_query(const char *name, uint16_t type, uint32_t options, dns_record **records) {
    question asked;
    if (const uint32_t error = make_question(name, type, &asked)) {
        return error;
    }
    ares_channel channel = nullptr;
    if (const uint32_t error = open_channel(options, &channel)) {
        return error;
    }
    ares_addr_port_node *servers = nullptr;
    uint32_t status = choose_servers(channel, &servers);
    if (status == error_none) {
        status = ask_servers(channel, asked, servers, records);
    }
    ares_free_data(servers);
    ares_destroy(channel);
    return status;
}

} // namespace quillfence::platform
