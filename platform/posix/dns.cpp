// The DNS client on Linux: c-ares carries the messages, dns_answer.h reads them. A query without a
// client sets up and takes down one of its own, so a run without queries never looks at
// resolv.conf, a change of settings is seen at once, and threads share nothing.
#include "../dns_system.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <ares.h>

#include "platform/dns_answer.h"
#include "platform/error_numbers.h"
#include "platform/format.h"
#include "platform/observer.h"
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
    int64_t both;
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
    dns_details *details; // null: not wanted
};

// What the sockets of one question were used for.
struct traffic {
    bool stream;
    int datagrams; // the socket, -1 for none
    uint32_t tries;
};

// c-ares knows how to talk to several servers; here each gets a channel of its own, so that time
// is shared between them and connections to all of them can stay.
struct lane {
    ares_addr_port_node *servers; // in order; null before the first question
    ares_channel channels[max_servers];
};

} // namespace

struct dns_client {
    bool keeps_connections;
    bool names_server;
    ares_addr_port_node server;
    int64_t limit; // negative: none
    traffic carried;
    lane lanes[2]; // UDP, TCP
};

namespace {

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
ares_socket_t open_socket(int family, int type, int protocol, void *user) {
    auto *const carried = static_cast<traffic *>(user);
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

ares_ssize_t send_parts(ares_socket_t open, const iovec *parts, int count, void *user) {
    auto *const carried = static_cast<traffic *>(user);
    carried->tries += open == carried->datagrams;
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

outcome ask_server(ares_channel channel, const question &asked, time_budget *budget,
                   dns_details *details) {
    outcome result{};
    result.details = details;
    ares_send(channel, asked.bytes, static_cast<int>(asked.size), note_answer, &result);
    while (!result.finished && go_on(channel, budget)) {
    }
    if (!result.finished) {
        ares_cancel(channel);
    }
    return result;
}

// Another server may know better than one with this result.
bool passes_on(const outcome &result) {
    constexpr uint32_t not_implemented = dns_status_rcode_base + 4;
    return !result.answered || result.status == dns_status_servfail ||
           result.status == not_implemented || result.status == dns_status_refused ||
           result.status == dns_status_bad_packet;
}

// --- channels ---

uint32_t init_channel(const dns_client &client, bool tcp, ares_channel *channel) {
    char lookups[] = "b"; // DNS alone
    ares_options wanted{};
    wanted.flags = ARES_FLAG_NOSEARCH | ARES_FLAG_NOALIASES | ARES_FLAG_NOCHECKRESP |
                   (tcp ? ARES_FLAG_USEVC : 0) |
                   (tcp && client.keeps_connections ? ARES_FLAG_STAYOPEN : 0);
    wanted.timeout = tcp ? tcp_repeat_after : udp_repeat_after;
    wanted.tries = tcp ? tcp_attempts : udp_attempts;
    wanted.lookups = lookups;
    const int given = ARES_OPT_FLAGS | ARES_OPT_TIMEOUTMS | ARES_OPT_TRIES | ARES_OPT_LOOKUPS |
                      ARES_OPT_DOMAINS | ARES_OPT_NOROTATE;
    static const int library = ares_library_init(ARES_LIB_INIT_ALL);
    if (library != ARES_SUCCESS || ares_init_options(channel, &wanted, given) != ARES_SUCCESS) {
        return error_not_enough_memory;
    }
    return error_none;
}

// A channel that asks one server, or with null the servers of the system's settings.
uint32_t open_channel(dns_client *client, bool tcp, const ares_addr_port_node *server,
                      ares_channel *channel) {
    if (const uint32_t error = init_channel(*client, tcp, channel)) {
        return error;
    }
    ares_set_socket_functions(*channel, &socket_functions, &client->carried);
    if (server) {
        ares_addr_port_node one = *server;
        one.next = nullptr;
        if (ares_set_servers_ports(*channel, &one) != ARES_SUCCESS) {
            ares_destroy(*channel);
            *channel = nullptr;
            return error_not_enough_memory;
        }
    }
    return error_none;
}

void close_channel(ares_channel *channel) {
    if (*channel) {
        ares_destroy(*channel);
        *channel = nullptr;
    }
}

void close_lane(lane *closed) {
    for (ares_channel &channel : closed->channels) {
        close_channel(&channel);
    }
    ares_free_data(closed->servers);
    closed->servers = nullptr;
}

// Finds out which servers there are. A single server's channel is left as it was read: a link-local
// address keeps its interface.
uint32_t open_lane(dns_client *client, bool tcp, lane *opened) {
    ares_channel *const first = &opened->channels[0];
    if (const uint32_t error =
            open_channel(client, tcp, client->names_server ? &client->server : nullptr, first)) {
        return error;
    }
    if (ares_get_servers_ports(*first, &opened->servers) != ARES_SUCCESS) {
        close_lane(opened);
        return error_not_enough_memory;
    }
    if (opened->servers && opened->servers->next) {
        close_channel(first); // it would ask all of them
    }
    return error_none;
}

// --- details ---

void write_server(const ares_addr_port_node &server, bool tcp, char *text, size_t size) {
    constexpr int usual_port = 53;
    char address[INET6_ADDRSTRLEN] = "";
    inet_ntop(server.family, &server.addr, address, sizeof address);
    const int port = tcp ? server.tcp_port : server.udp_port;
    format_text(text, size, server.family == AF_INET6 ? "[%s]:%d" : "%s:%d", address,
                port ? port : usual_port);
}

// The details of one server's part in place of those so far.
void keep_details(const ares_addr_port_node &server, bool tcp, dns_details *part,
                  dns_details *details) {
    if (details) {
        dns_details_clear(details);
        *details = *part;
        write_server(server, tcp, details->server, sizeof details->server);
    }
}

// --- all servers ---

// One question on its way through the servers.
struct inquiry {
    dns_client *client;
    lane *used;
    bool tcp;
    const question *asked;
    time_budget left;
    dns_record **records;
    dns_details *details; // null: not wanted
};

int count_servers(const lane &of) {
    int count = 0;
    for (const auto *server = of.servers; server && count < max_servers; server = server->next) {
        ++count;
    }
    return count;
}

// Asks one server within a part of the time that is left. The channel of one that did not answer is
// closed: its connection may be dead.
outcome ask_one(inquiry *all, const ares_addr_port_node &server, ares_channel *channel, int parts,
                dns_details *details) {
    if (!*channel) {
        if (const uint32_t error = open_channel(all->client, all->tcp, &server, channel)) {
            return {true, false, error, nullptr, details};
        }
    }
    traffic *const carried = &all->client->carried;
    carried->tries += has_connection(*channel);
    carried->datagrams = -1;
    carried->stream = all->tcp;
    const time_budget given = {all->left.connecting / parts, all->left.answering / parts,
                               all->left.both / parts};
    time_budget rest = given;
    const outcome result = ask_server(*channel, *all->asked, &rest, details);
    all->left.connecting -= given.connecting - rest.connecting;
    all->left.answering -= given.answering - rest.answering;
    all->left.both -= given.both - rest.both;
    if (!result.answered) {
        close_channel(channel);
    }
    if (details) {
        details->transport = carried->stream ? dns_transport::tcp : dns_transport::udp;
    }
    return result;
}

// The first result that no other server may know better, else the first answer, else silence.
uint32_t ask_servers(inquiry *all) {
    outcome best{};
    best.status = dns_status_servfail;
    const int count = count_servers(*all->used);
    const ares_addr_port_node *server = all->used->servers;
    bool decided = false;
    for (int i = 0; i < count && !decided; ++i, server = server->next) {
        dns_details part = dns_no_details();
        const outcome result = ask_one(all, *server, &all->used->channels[i], i + 1 < count ? 2 : 1,
                                       all->details ? &part : nullptr);
        decided = !passes_on(result) || result.status == error_not_enough_memory;
        const bool reached = result.answered || result.status == dns_status_timeout;
        const bool none_reached = !best.answered && best.status == dns_status_servfail;
        if (decided || (!best.answered && reached) || none_reached) {
            best = result;
            keep_details(*server, all->tcp, &part, all->details);
        } else {
            dns_details_clear(&part);
        }
    }
    if (!best.answered) {
        close_lane(all->used);
    }
    *all->records = best.records;
    return best.status;
}

int64_t within(int64_t most, int64_t limit) {
    return limit < 0 ? most : std::min(most, limit);
}

uint32_t ask_client(dns_client *client, const question &asked, bool tcp, dns_record **records,
                    dns_details *details) {
    lane *const used = &client->lanes[tcp];
    if (!used->servers) {
        if (const uint32_t error = open_lane(client, tcp, used)) {
            return error;
        }
    }
    client->carried.tries = 0;
    inquiry all = {client, used, tcp, &asked, {}, records, details};
    all.left = {connect_limit, answer_limit, within(connect_limit + answer_limit, client->limit)};
    const uint32_t status = ask_servers(&all);
    if (details) {
        details->tries = client->carried.tries;
    }
    return status;
}

// The server that the environment names, if any.
uint32_t take_environment(dns_client *client) {
    char text[128];
    const uint32_t length = environment_variable("QUILLFENCE_DNS_SERVER", text, sizeof text);
    client->names_server = length != 0;
    if (length && (length >= sizeof text || !parse_server(text, &client->server))) {
        return error_invalid_parameter;
    }
    return error_none;
}

uint32_t take_server(const char *server, dns_client *client) {
    client->limit = -1;
    if (!server) {
        return take_environment(client);
    }
    char text[128];
    client->names_server = true;
    const bool whole = format_text(text, sizeof text, "%s", server) > 0;
    return whole && parse_server(text, &client->server) ? error_none : error_invalid_parameter;
}

void close_lanes(dns_client *client) {
    for (lane &one : client->lanes) {
        close_lane(&one);
    }
}

} // namespace

uint32_t dns_client_open(const char *server, dns_client **opened) {
    *opened = nullptr;
    if (const uint32_t refused = observe_call("dns_client_open", server)) {
        return refused;
    }
    auto *const client = static_cast<dns_client *>(calloc(1, sizeof(dns_client)));
    if (!client) {
        return error_not_enough_memory;
    }
    client->keeps_connections = true;
    if (const uint32_t error = take_server(server, client)) {
        free(client);
        return error;
    }
    *opened = client;
    return error_none;
}

void dns_client_close(dns_client *client) {
    if (client) {
        close_lanes(client);
        free(client);
    }
}

void dns_client_limit(dns_client *client, int64_t milliseconds) {
    client->limit = milliseconds;
}

uint32_t system_dns_query(dns_client *client, const char *name, uint16_t type, uint32_t options,
                          dns_record **records, dns_details *details) {
    question asked;
    if (const uint32_t error = make_question(name, type, &asked)) {
        return error;
    }
    const bool tcp = options & dns_query_tcp_only;
    if (client) {
        return client->limit == 0 ? dns_status_timeout
                                  : ask_client(client, asked, tcp, records, details);
    }
    dns_client once{};
    uint32_t status = take_server(nullptr, &once);
    if (status == error_none) {
        status = ask_client(&once, asked, tcp, records, details);
    }
    close_lanes(&once);
    return status;
}

} // namespace quillfence::platform
