// The DNS client on Linux: which servers are asked, in which order and for how long. A query
// without a client sets up and takes down one of its own, so a run without queries never looks at
// resolv.conf, a change of settings is seen at once, and threads share nothing.
#include "../dns_system.h"

#include <algorithm>
#include <cstdlib>

#include <ares.h>

#include "dns_exchange.h"
#include "dns_question.h"
#include "dns_server.h"
#include "dns_turns.h"
#include "platform/error_numbers.h"
#include "platform/format.h"
#include "platform/observer.h"
#include "platform/process.h"

namespace quillfence::platform {

// Milliseconds. dns.h tells what they mean.
static constexpr int udp_repeat_after = 1000;
static constexpr int tcp_repeat_after = 60000; // never within the limits: TCP repeats by itself
static constexpr int udp_attempts = 2;

namespace {

// c-ares knows how to talk to several servers; here each gets a channel of its own, so that time
// is shared between them and connections to all of them can stay.
struct lane {
    ares_addr_port_node *servers; // in order; null before the first question
    ares_channel channels[dns_servers_max];
};

} // namespace

struct dns_client {
    bool keeps_connections;
    bool names_server;
    ares_addr_port_node server;
    int64_t limit; // negative: none
    dns_traffic carried;
    lane lanes[2]; // UDP, TCP
};

// --- channels ---

static uint32_t init_channel(const dns_client &client, bool tcp, ares_channel *channel) {
    char lookups[] = "b"; // DNS alone
    ares_options wanted{};
    wanted.flags = ARES_FLAG_NOSEARCH | ARES_FLAG_NOALIASES | ARES_FLAG_NOCHECKRESP |
                   (tcp ? ARES_FLAG_USEVC : 0) |
                   (tcp && client.keeps_connections ? ARES_FLAG_STAYOPEN : 0);
    wanted.timeout = tcp ? tcp_repeat_after : udp_repeat_after;
    wanted.tries = tcp ? dns_tcp_attempts : udp_attempts;
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
static uint32_t open_channel(dns_client *client, bool tcp, const ares_addr_port_node *server,
                             ares_channel *channel) {
    if (const uint32_t error = init_channel(*client, tcp, channel)) {
        return error;
    }
    use_counted_sockets(*channel, &client->carried);
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

static void close_channel(ares_channel *channel) {
    if (*channel) {
        ares_destroy(*channel);
        *channel = nullptr;
    }
}

static void close_lane(lane *closed) {
    for (ares_channel &channel : closed->channels) {
        close_channel(&channel);
    }
    ares_free_data(closed->servers);
    closed->servers = nullptr;
}

// Finds out which servers there are. A single server's channel is left as it was read: a link-local
// address keeps its interface.
static uint32_t open_lane(dns_client *client, bool tcp, lane *opened) {
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

// The details of one server's part in place of those so far.
static void keep_details(const ares_addr_port_node &server, bool tcp, dns_details *part,
                         dns_details *details) {
    if (details) {
        dns_details_clear(details);
        *details = *part;
        write_dns_server(server, tcp, details->server, sizeof details->server);
    }
}

// --- all servers ---

namespace {

// One question on its way through the servers.
struct inquiry {
    dns_client *client;
    lane *used;
    bool tcp;
    const dns_question *asked;
    dns_time left;
    dns_record **records;
    dns_details *details; // null: not wanted
};

} // namespace

static int count_servers(const lane &of) {
    int count = 0;
    for (const auto *server = of.servers; server && count < dns_servers_max;
         server = server->next) {
        ++count;
    }
    return count;
}

// Asks one server within a part of the time that is left. The channel of one that did not answer is
// closed: its connection may be dead.
static dns_outcome ask_one(inquiry *all, const ares_addr_port_node &server, ares_channel *channel,
                           bool is_last, dns_details *details) {
    if (!*channel) {
        if (const uint32_t error = open_channel(all->client, all->tcp, &server, channel)) {
            return {true, false, error, nullptr, details};
        }
    }
    dns_traffic *const carried = &all->client->carried;
    carried->tries += has_connection(*channel);
    carried->datagrams = -1;
    carried->stream = all->tcp;
    const dns_time given = dns_time_of_server(all->left, is_last);
    dns_time rest = given;
    const dns_outcome result = ask_dns_server(*channel, *all->asked, &rest, details);
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

bool dns_passes_on(const dns_outcome &result) {
    constexpr uint32_t not_implemented = dns_status_rcode_base + 4;
    if (result.status == error_not_enough_memory) {
        return false;
    }
    return !result.answered || result.status == dns_status_servfail ||
           result.status == not_implemented || result.status == dns_status_refused ||
           result.status == dns_status_bad_packet;
}

bool dns_is_better(const dns_outcome &result, const dns_outcome &best) {
    const bool reached = result.answered || result.status == dns_status_timeout;
    const bool none_reached = !best.answered && best.status == dns_status_servfail;
    return !dns_passes_on(result) || (!best.answered && reached) || none_reached;
}

dns_outcome dns_nobody() {
    dns_outcome nobody{};
    nobody.status = dns_status_servfail;
    return nobody;
}

// The first result that no other server may know better, else the first answer, else silence.
static uint32_t ask_servers(inquiry *all) {
    dns_outcome best = dns_nobody();
    const int count = count_servers(*all->used);
    const ares_addr_port_node *server = all->used->servers;
    bool decided = false;
    for (int i = 0; i < count && !decided; ++i, server = server->next) {
        dns_details part = dns_no_details();
        const dns_outcome result = ask_one(all, *server, &all->used->channels[i], i + 1 == count,
                                           all->details ? &part : nullptr);
        decided = !dns_passes_on(result);
        if (dns_is_better(result, best)) {
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

static uint32_t ask_client(dns_client *client, const dns_question &asked, bool tcp,
                           dns_record **records, dns_details *details) {
    lane *const used = &client->lanes[tcp];
    if (!used->servers) {
        if (const uint32_t error = open_lane(client, tcp, used)) {
            return error;
        }
    }
    client->carried.tries = 0;
    inquiry all = {client, used, tcp, &asked, dns_time_within(client->limit), records, details};
    const uint32_t status = ask_servers(&all);
    if (details) {
        details->tries = client->carried.tries;
    }
    return status;
}

// The server that the environment names, if any.
static uint32_t take_environment(dns_client *client) {
    char text[128];
    const uint32_t length = environment_variable("QUILLFENCE_DNS_SERVER", text, sizeof text);
    client->names_server = length != 0;
    if (length && (length >= sizeof text || !parse_dns_server(text, &client->server))) {
        return error_invalid_parameter;
    }
    return error_none;
}

static uint32_t take_server(const char *server, dns_client *client) {
    client->limit = -1;
    if (!server) {
        return take_environment(client);
    }
    char text[128];
    client->names_server = true;
    const bool whole = format_text(text, sizeof text, "%s", server) > 0;
    return whole && parse_dns_server(text, &client->server) ? error_none : error_invalid_parameter;
}

uint32_t list_dns_servers(const char *server, ares_addr_port_node **list) {
    *list = nullptr;
    dns_client client{};
    lane *const used = &client.lanes[1];
    uint32_t error = take_server(server, &client);
    if (!error) {
        error = open_lane(&client, true, used);
    }
    if (!error) {
        *list = used->servers;
        used->servers = nullptr;
        close_lane(used);
    }
    return error;
}

static void close_lanes(dns_client *client) {
    for (lane &one : client->lanes) {
        close_lane(&one);
    }
}

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
    dns_question asked;
    if (const uint32_t error = make_dns_question(name, type, &asked)) {
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
