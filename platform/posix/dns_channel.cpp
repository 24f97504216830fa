// Many questions at once. A question (flight) is with one server at a time, and there on one of its
// connections (berths), or in the line of those that wait for room on one.
#include "platform/dns_channel.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <ares.h>

#include "../dns_system.h"
#include "dns_link.h"
#include "dns_question.h"
#include "dns_server.h"
#include "dns_turns.h"
#include "platform/dns_answer.h"
#include "platform/error_numbers.h"
#include "platform/observer.h"

namespace quillfence::platform {

static constexpr unsigned usual_berths = 8; // connections to a server
static constexpr unsigned most_berths = 64; // to one that cuts them after a few answers
static constexpr uint64_t few_answers = 256;
static constexpr uint64_t any_number = uint64_t{1} << 40;
static constexpr unsigned most_sends = 16; // of a question to a server
static constexpr size_t most_unsent = size_t{256} << 10;
static constexpr int64_t idle_limit = 10'000; // milliseconds
static constexpr int64_t settings_age = 1000; // milliseconds
static constexpr int64_t never = INT64_MAX;
static constexpr size_t identifiers = 65536;

namespace {

struct berth;

struct flight {
    flight *next; // with the others of its berth, or of those that wait
    flight *previous;
    berth *on; // null: it waits
    void *tag;
    int64_t asked_at;  // microseconds
    int64_t since;     // milliseconds: what was spent before is taken from the times
    dns_time left;     // for all servers
    dns_time given;    // for this one
    uint64_t settings; // of which server_list
    int server;
    unsigned failures;       // tries with this server, on connections that it answered nobody on
    unsigned sends;          // to this server
    unsigned tries;          // in all
    uint64_t answers_before; // of its berth
    dns_outcome best;
    dns_details details; // of the best
    dns_question asked;
};

struct flight_list {
    flight *first;
    flight *last;
    unsigned count;
};

struct berth {
    dns_link link;
    int server;
    uint32_t serial; // tells it from others that had its place
    bool leaving;    // takes no more questions
    bool watches_sending;
    flight_list flights;
    uint64_t carried;  // questions
    uint64_t answered; // of them
    int64_t idle_since;
};

// How many questions a server is given on one connection, and the connections.
struct harbour {
    ares_addr_port_node address;
    uint64_t quota;
    flight_list waiting;
    unsigned used; // all berths from here on are closed
    berth berths[most_berths];
};

// The berths of a harbour that may be open.
struct used_berths {
    berth *first;
    unsigned count;
    berth *begin() const {
        return first;
    }
    berth *end() const {
        return first + count;
    }
};

} // namespace

struct dns_channel {
    dns_channel_listener told;
    void *context;
    char server[128];
    bool names_server;
    int poll;
    int wake;
    uint32_t serials;
    int64_t now;      // milliseconds
    int64_t next_end; // of a flight; it may have gone meanwhile
    unsigned flights;
    bool hurries;        // there may be something to send, or to board
    uint64_t settings;   // how often they have changed
    int64_t settings_at; // when they were read
    bool settings_doubted;
    int servers;
    harbour harbours[dns_servers_max];
    flight *by_identifier[identifiers];
};

static void go_to_server(dns_channel *channel, flight *one);

static used_berths used(harbour *of) {
    return {of->berths, of->used};
}

// --- time ---

static int64_t microseconds_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

static bool is_connected(const flight *one) {
    return one->on && one->on->link.connected;
}

// Takes the time since the last look from what it had for what it did.
static void spend(const dns_channel *channel, flight *one) {
    const int64_t spent = channel->now - one->since;
    const bool answering = is_connected(one);
    for (dns_time *const time : {&one->left, &one->given}) {
        (answering ? time->answering : time->connecting) -= spent;
        time->both -= spent;
    }
    one->since = channel->now;
}

static int64_t end_of(const flight *one) {
    const dns_time &time = one->given;
    return one->since + std::min(is_connected(one) ? time.answering : time.connecting, time.both);
}

static void note_end(dns_channel *channel, const flight *one) {
    channel->next_end = std::min(channel->next_end, end_of(one));
}

// --- lists ---

static void put_in(flight_list *list, flight *one) {
    one->previous = list->last;
    one->next = nullptr;
    (list->last ? list->last->next : list->first) = one;
    list->last = one;
    ++list->count;
}

static void put_in_front(flight_list *list, flight *one) {
    one->previous = nullptr;
    one->next = list->first;
    (list->first ? list->first->previous : list->last) = one;
    list->first = one;
    ++list->count;
}

static void take_out(flight_list *list, flight *one) {
    (one->previous ? one->previous->next : list->first) = one->next;
    (one->next ? one->next->previous : list->last) = one->previous;
    --list->count;
}

// --- settings ---

static bool same_server(const ares_addr_port_node &one, const ares_addr_port_node &other) {
    const size_t size = one.family == AF_INET ? sizeof one.addr.addr4 : sizeof one.addr.addr6;
    return one.family == other.family && one.tcp_port == other.tcp_port &&
           !memcmp(&one.addr, &other.addr, size);
}

static bool are_same(const dns_channel *channel, const ares_addr_port_node *list) {
    int count = 0;
    for (; list && count < dns_servers_max; list = list->next, ++count) {
        if (count >= channel->servers || !same_server(channel->harbours[count].address, *list)) {
            return false;
        }
    }
    return count == channel->servers;
}

static void leave_all(dns_channel *channel) {
    for (harbour &each : channel->harbours) {
        for (berth &one : used(&each)) {
            one.leaving = true;
        }
    }
}

static void take_servers(dns_channel *channel, const ares_addr_port_node *list) {
    leave_all(channel);
    ++channel->settings;
    channel->servers = 0;
    for (; list && channel->servers < dns_servers_max; list = list->next) {
        harbour *const each = &channel->harbours[channel->servers++];
        each->address = *list;
        each->address.next = nullptr;
        each->quota = any_number;
    }
}

static uint32_t read_settings(dns_channel *channel) {
    ares_addr_port_node *list = nullptr;
    const uint32_t error =
        list_dns_servers(channel->names_server ? channel->server : nullptr, &list);
    if (error) {
        return error;
    }
    if (!are_same(channel, list)) {
        take_servers(channel, list);
    }
    ares_free_data(list);
    channel->settings_at = channel->now;
    channel->settings_doubted = false;
    return error_none;
}

// After a question that no server answered, and no more than once a second.
static void renew_settings(dns_channel *channel) {
    if (channel->settings_doubted && channel->now - channel->settings_at >= settings_age) {
        read_settings(channel); // those before stay when that fails
    }
}

// The interface of a link-local address is not told.
static bool needs_interface(const dns_channel *channel) {
    const ares_addr_port_node &first = channel->harbours[0].address;
    const auto *const bytes = reinterpret_cast<const unsigned char *>(&first.addr);
    return channel->servers == 1 && first.family == AF_INET6 && bytes[0] == 0xFE &&
           (bytes[1] & 0xC0) == 0x80;
}

// --- flights ---

static void release_flight(dns_channel *channel, flight *one) {
    const size_t identifier = static_cast<size_t>(one->asked.bytes[0] << 8 | one->asked.bytes[1]);
    channel->by_identifier[identifier] = nullptr;
    --channel->flights;
    dns_release(one->best.records);
    dns_details_clear(&one->details);
    free(one);
}

static void finish(dns_channel *channel, flight *one) {
    channel->settings_doubted |= !one->best.answered;
    one->details.status = one->best.status;
    one->details.tries = one->tries;
    one->details.microseconds = microseconds_now() - one->asked_at;
    channel->told(channel->context, one->tag, one->best.status, one->best.records, &one->details);
    release_flight(channel, one);
}

static bool is_last_server(const dns_channel *channel, const flight *one) {
    return one->settings != channel->settings || one->server + 1 >= channel->servers;
}

// What a server made of it, with the details of that: told, or handed on.
static void settle(dns_channel *channel, flight *one, const dns_outcome &result,
                   dns_details *part) {
    if (dns_is_better(result, one->best)) {
        dns_details_clear(&one->details);
        one->best = result;
        one->details = *part;
        one->details.transport = dns_transport::tcp;
        if (one->settings == channel->settings) {
            write_dns_server(channel->harbours[one->server].address, true, one->details.server,
                             sizeof one->details.server);
        }
    } else {
        dns_details_clear(part);
    }
    if (!dns_passes_on(result) || is_last_server(channel, one)) {
        finish(channel, one);
        return;
    }
    ++one->server;
    go_to_server(channel, one);
}

static void settle_without_answer(dns_channel *channel, flight *one, uint32_t status) {
    dns_outcome result{};
    result.status = status;
    dns_details none = dns_no_details();
    settle(channel, one, result, &none);
}

// --- berths ---

static void watch(const dns_channel *channel, berth *one, int operation) {
    one->watches_sending = !one->link.connected || one->link.out_size > 0;
    const auto place = static_cast<uint32_t>(one - channel->harbours[one->server].berths);
    epoll_event wanted{};
    wanted.events = EPOLLIN | (one->watches_sending ? static_cast<uint32_t>(EPOLLOUT) : 0u);
    wanted.data.u64 =
        uint64_t{one->serial} << 32 | (static_cast<uint32_t>(one->server) * most_berths + place);
    epoll_ctl(channel->poll, operation, one->link.socket, &wanted);
}

static bool is_open(const berth &one) {
    return one.link.socket >= 0;
}

static bool takes_more(const harbour &of, const berth &one) {
    return is_open(one) && !one.leaving && one.carried < of.quota &&
           one.link.out_size < most_unsent;
}

// The one with the fewest questions; null without one. *in_use: those that may be counted on.
static berth *emptiest(harbour *of, unsigned *in_use) {
    berth *best = nullptr;
    *in_use = 0;
    for (berth &one : used(of)) {
        *in_use += is_open(one) && !one.leaving;
        if (takes_more(*of, one) && (!best || one.flights.count < best->flights.count)) {
            best = &one;
        }
    }
    return best;
}

static berth *closed_berth(harbour *of) {
    for (berth &one : used(of)) {
        if (!is_open(one)) {
            return &one;
        }
    }
    return of->used < most_berths ? &of->berths[of->used++] : nullptr;
}

static bool open_berth(dns_channel *channel, int server, berth *one) {
    *one = {};
    one->server = server;
    one->serial = ++channel->serials;
    one->idle_since = channel->now;
    if (!open_dns_link(channel->harbours[server].address, &one->link)) {
        return false;
    }
    watch(channel, one, EPOLL_CTL_ADD);
    return true;
}

// A place for a question. Null when there is none now, or (*refused) no connection can be begun.
static berth *find_berth(dns_channel *channel, int server, bool *refused) {
    harbour *const of = &channel->harbours[server];
    unsigned in_use = 0;
    *refused = false;
    berth *const best = emptiest(of, &in_use);
    const unsigned most = of->quota < few_answers ? most_berths : usual_berths;
    if ((best && best->flights.count == 0) || in_use >= most) {
        return best;
    }
    berth *const fresh = closed_berth(of);
    if (!fresh) {
        return best;
    }
    if (open_berth(channel, server, fresh)) {
        return fresh;
    }
    *refused = !best;
    return best;
}

static void close_berth(berth *one) {
    close_dns_link(&one->link);
}

// --- boarding ---

static void put_on(dns_channel *channel, berth *on, flight *one) {
    if (const uint32_t error = put_on_dns_link(&on->link, one->asked.bytes, one->asked.size)) {
        settle_without_answer(channel, one, error);
        return;
    }
    spend(channel, one);
    one->on = on;
    one->answers_before = on->answered;
    ++one->sends;
    ++one->tries;
    ++on->carried;
    channel->hurries = true;
    put_in(&on->flights, one);
    note_end(channel, one);
}

// False when it has to wait.
static bool board(dns_channel *channel, flight *one) {
    bool refused = false;
    if (berth *const on = find_berth(channel, one->server, &refused)) {
        put_on(channel, on, one);
        return true;
    }
    if (refused) {
        one->tries += dns_tcp_attempts; // nothing else would come of two more
        settle_without_answer(channel, one, dns_status_servfail);
    }
    return refused;
}

static void wait_or_board(dns_channel *channel, flight *one) {
    harbour *const of = &channel->harbours[one->server];
    one->on = nullptr;
    if (of->waiting.count > 0 || !board(channel, one)) {
        put_in(&of->waiting, one);
        note_end(channel, one);
    }
}

static void go_to_server(dns_channel *channel, flight *one) {
    one->since = channel->now;
    one->on = nullptr;
    one->failures = one->sends = 0;
    one->given = dns_time_of_server(one->left, one->server + 1 == channel->servers);
    wait_or_board(channel, one);
}

static void board_waiting(dns_channel *channel) {
    for (harbour &of : channel->harbours) {
        while (flight *const first = of.waiting.first) {
            take_out(&of.waiting, first);
            if (!board(channel, first)) {
                put_in_front(&of.waiting, first);
                break;
            }
        }
    }
}

// Takes a flight off where it is.
static void leave(dns_channel *channel, flight *one) {
    spend(channel, one);
    if (berth *const on = one->on) {
        take_out(&on->flights, one);
        on->idle_since = channel->now;
    } else {
        take_out(&channel->harbours[one->server].waiting, one);
    }
}

// --- what becomes of a berth ---

// How many questions the server may get on the next connection.
static void learn_quota(harbour *of, const berth &cut) {
    if (cut.flights.count > 0 && cut.answered > 0) {
        of->quota = cut.answered;
    }
}

// A connection that has carried answers was cut for its own reasons, even when this question was
// put on it after the last of them: the server was about to close it, and did not know.
static void send_again(dns_channel *channel, flight *one, bool has_answered) {
    one->failures += !has_answered;
    if (one->failures >= dns_tcp_attempts || one->sends >= most_sends ||
        one->settings != channel->settings) {
        settle_without_answer(channel, one, dns_status_servfail);
    } else {
        wait_or_board(channel, one);
    }
}

// The server has cut the connection, or sent what is no DNS.
static void lose_berth(dns_channel *channel, berth *lost) {
    learn_quota(&channel->harbours[lost->server], *lost);
    channel->hurries = true;
    flight_list all = lost->flights;
    const uint64_t answered = lost->answered;
    for (flight *one = all.first; one; one = one->next) {
        spend(channel, one);
    }
    close_berth(lost);
    lost->flights = {};
    while (flight *const one = all.first) {
        take_out(&all, one);
        one->on = nullptr;
        send_again(channel, one, answered > 0);
    }
}

// One that the server did not have to cut: it may have more the next time.
static void close_if_done(harbour *of, berth *one) {
    if (is_open(*one) && one->flights.count == 0 && (one->leaving || one->carried >= of->quota)) {
        of->quota = std::max(of->quota, 2 * one->carried);
        close_berth(one);
    }
}

// --- answers ---

static unsigned char lower(unsigned char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte - 'A' + 'a') : byte;
}

// Whether a message repeats the question: the name in any letter case.
static bool repeats(const unsigned char *message, size_t size, const dns_question &asked) {
    constexpr size_t header = 12;
    constexpr size_t type_and_class = 4;
    if (size < asked.size || message[4] != 0 || message[5] != 1) {
        return false;
    }
    const size_t name_end = asked.size - type_and_class;
    for (size_t i = header; i < name_end; ++i) {
        if (lower(message[i]) != lower(asked.bytes[i])) {
            return false;
        }
    }
    return !memcmp(message + name_end, asked.bytes + name_end, type_and_class);
}

static void take_message(dns_channel *channel, berth *from, const unsigned char *message,
                         size_t size) {
    constexpr size_t header = 12;
    if (size < header) {
        return;
    }
    flight *const one = channel->by_identifier[message[0] << 8 | message[1]];
    if (!one || one->on != from || !repeats(message, size, one->asked)) {
        return;
    }
    ++from->answered;
    leave(channel, one);
    one->on = nullptr;
    dns_outcome result{};
    dns_details part = dns_no_details();
    result.answered = true;
    result.status = read_dns_answer(message, size, &result.records, &part);
    settle(channel, one, result, &part);
}

// False when something can't be a message.
static bool take_messages(dns_channel *channel, berth *from) {
    size_t place = 0;
    size_t size = 0;
    while (const unsigned char *const message = next_on_dns_link(from->link, &place, &size)) {
        if (size == 0) {
            return false;
        }
        take_message(channel, from, message, size);
    }
    drop_taken_of_dns_link(&from->link, place);
    return true;
}

static void receive(dns_channel *channel, berth *one) {
    const bool was_idle = one->flights.count == 0;
    const bool goes_on = receive_dns_link(&one->link);
    if (!goes_on || was_idle || !take_messages(channel, one)) {
        lose_berth(channel, one);
    }
}

// It can't be written to any more; what the server answered before it closed is there to be read.
static void lose_after_answers(dns_channel *channel, berth *lost) {
    size_t before = 0;
    do {
        before = lost->link.in_size;
    } while (receive_dns_link(&lost->link) && lost->link.in_size > before &&
             take_messages(channel, lost));
    lose_berth(channel, lost);
}

static void note_connection(dns_channel *channel, berth *one) {
    for (flight *each = one->flights.first; each; each = each->next) {
        spend(channel, each); // on connecting
    }
    if (finish_dns_link(&one->link)) {
        channel->next_end = channel->now; // other times count now
    } else {
        lose_berth(channel, one);
    }
}

static void send_berth(dns_channel *channel, berth *one) {
    if (one->link.connected && one->link.out_size > 0 && !send_dns_link(&one->link)) {
        lose_after_answers(channel, one);
    } else if (one->watches_sending != (!one->link.connected || one->link.out_size > 0)) {
        watch(channel, one, EPOLL_CTL_MOD);
    }
}

static void look_at_berth(dns_channel *channel, const epoll_event &event) {
    const auto place = static_cast<uint32_t>(event.data.u64);
    berth *const one = &channel->harbours[place / most_berths].berths[place % most_berths];
    const uint32_t serial = one->serial;
    if (!is_open(*one) || serial != event.data.u64 >> 32) {
        return;
    }
    if (!one->link.connected) {
        note_connection(channel, one);
    }
    if (is_open(*one) && one->serial == serial && one->link.connected &&
        (event.events & (EPOLLIN | EPOLLERR | EPOLLHUP))) {
        receive(channel, one);
    }
}

// --- ends ---

static void end_flights(dns_channel *channel, flight_list *list) {
    for (flight *one = list->first; one;) {
        flight *const next = one->next;
        if (end_of(one) > channel->now) {
            note_end(channel, one);
        } else {
            berth *const on = one->on;
            leave(channel, one);
            if (on) {
                on->leaving |= on->answered == one->answers_before;
            }
            settle_without_answer(channel, one, dns_status_timeout);
        }
        one = next;
    }
}

static void end_all(dns_channel *channel) {
    if (channel->next_end > channel->now) {
        return;
    }
    channel->next_end = never;
    for (harbour &of : channel->harbours) {
        end_flights(channel, &of.waiting);
        for (berth &one : used(&of)) {
            if (is_open(one)) {
                end_flights(channel, &one.flights);
            }
        }
    }
}

static void close_berths(dns_channel *channel) {
    for (harbour &of : channel->harbours) {
        for (berth &one : used(&of)) {
            one.leaving |= one.flights.count == 0 && channel->now - one.idle_since >= idle_limit;
            close_if_done(&of, &one);
        }
        while (of.used > 0 && !is_open(of.berths[of.used - 1])) {
            --of.used;
        }
    }
}

static void send_all(dns_channel *channel) {
    for (harbour &of : channel->harbours) {
        for (berth &one : used(&of)) {
            if (is_open(one)) {
                send_berth(channel, &one);
            }
        }
    }
}

// --- the channel ---

static bool open_descriptors(dns_channel *channel) {
    channel->poll = epoll_create1(EPOLL_CLOEXEC);
    channel->wake = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    epoll_event wanted{};
    wanted.events = EPOLLIN;
    wanted.data.u64 = UINT64_MAX;
    return channel->poll >= 0 && channel->wake >= 0 &&
           !epoll_ctl(channel->poll, EPOLL_CTL_ADD, channel->wake, &wanted);
}

static dns_channel *new_channel(dns_channel_listener told, void *context) {
    auto *const made = static_cast<dns_channel *>(calloc(1, sizeof(dns_channel)));
    if (!made) {
        return nullptr;
    }
    made->told = told;
    made->context = context;
    made->poll = made->wake = -1;
    made->next_end = never;
    made->now = microseconds_now() / 1000;
    for (harbour &of : made->harbours) {
        for (berth &one : of.berths) {
            one.link.socket = -1;
        }
    }
    return made;
}

static uint32_t prepare_channel(const char *server, dns_channel *channel) {
    if (server && strlen(server) >= sizeof channel->server) {
        return error_invalid_parameter;
    }
    if (server) {
        channel->names_server = true;
        strcpy(channel->server, server);
    }
    if (const uint32_t error = read_settings(channel)) {
        return error;
    }
    if (needs_interface(channel)) {
        return error_not_supported;
    }
    return open_descriptors(channel) ? error_none : error_not_enough_memory;
}

uint32_t dns_channel_open(const char *server, dns_channel_listener told, void *context,
                          dns_channel **opened) {
    *opened = nullptr;
    if (has_dns_stand_in()) {
        return error_not_supported;
    }
    if (const uint32_t refused = observe_call("dns_channel_open", server)) {
        return refused;
    }
    dns_channel *const made = new_channel(told, context);
    if (!made) {
        return error_not_enough_memory;
    }
    if (const uint32_t error = prepare_channel(server, made)) {
        dns_channel_close(made);
        return error;
    }
    *opened = made;
    return error_none;
}

void dns_channel_close(dns_channel *channel) {
    if (!channel) {
        return;
    }
    for (flight *const one : channel->by_identifier) {
        if (one) {
            release_flight(channel, one);
        }
    }
    for (harbour &of : channel->harbours) {
        for (berth &one : of.berths) {
            close_berth(&one);
        }
    }
    for (const int open : {channel->poll, channel->wake}) {
        if (open >= 0) {
            close(open);
        }
    }
    free(channel);
}

// With an identifier that no other has.
static uint32_t make_flight(dns_channel *channel, const char *name, uint16_t type, flight **made) {
    auto *const one = static_cast<flight *>(calloc(1, sizeof(flight)));
    if (!one) {
        return error_not_enough_memory;
    }
    size_t identifier = 0;
    do {
        if (const uint32_t error = make_dns_question(name, type, &one->asked)) {
            free(one);
            return error;
        }
        identifier = static_cast<size_t>(one->asked.bytes[0] << 8 | one->asked.bytes[1]);
    } while (channel->by_identifier[identifier]);
    channel->by_identifier[identifier] = one;
    ++channel->flights;
    *made = one;
    return error_none;
}

static uint32_t begin_flight(dns_channel *channel, const char *name, uint16_t type, int64_t limit,
                             flight **made) {
    if (!name) {
        return error_invalid_parameter;
    }
    if (const uint32_t refused = observe_call("dns_query", name)) {
        return refused;
    }
    if (channel->flights >= dns_channel_questions_max) {
        return error_not_enough_memory;
    }
    const uint32_t error = make_flight(channel, name, type, made);
    if (!error && limit == 0) {
        release_flight(channel, *made);
        return dns_status_timeout;
    }
    return error;
}

void dns_channel_ask(dns_channel *channel, const char *name, uint16_t type, int64_t limit,
                     void *tag) {
    const int64_t asked_at = microseconds_now();
    channel->now = asked_at / 1000;
    renew_settings(channel);
    flight *one = nullptr;
    if (const uint32_t error = begin_flight(channel, name, type, limit, &one)) {
        dns_details none = dns_no_details();
        none.status = error;
        none.microseconds = microseconds_now() - asked_at;
        channel->told(channel->context, tag, error, nullptr, &none);
        return;
    }
    one->tag = tag;
    one->asked_at = asked_at;
    one->left = dns_time_within(limit);
    one->settings = channel->settings;
    one->best = dns_nobody();
    one->details = dns_no_details();
    if (channel->servers == 0) {
        finish(channel, one);
    } else {
        go_to_server(channel, one);
    }
}

static bool has_connections(const dns_channel *channel) {
    bool any = false;
    for (const harbour &of : channel->harbours) {
        any |= of.used > 0;
    }
    return any;
}

// No longer than until a flight's end; with connections it looks from time to time whether one has
// become idle. -1: however long.
static int time_to_wait(const dns_channel *channel) {
    constexpr int64_t between_looks = 1000;
    if (channel->hurries) {
        return 0;
    }
    if (!has_connections(channel) && channel->next_end == never) {
        return -1;
    }
    const int64_t until_end = std::max(channel->next_end - channel->now, int64_t{0});
    return static_cast<int>(std::min(until_end, between_looks));
}

int dns_channel_send(dns_channel *channel) {
    channel->now = microseconds_now() / 1000;
    close_berths(channel);
    board_waiting(channel);
    channel->hurries = false;
    send_all(channel);
    return time_to_wait(channel);
}

void dns_channel_take(dns_channel *channel, int wait) {
    constexpr int events_max = 64;
    epoll_event events[events_max];
    const int count = epoll_wait(channel->poll, events, events_max, wait);
    channel->now = microseconds_now() / 1000;
    for (int i = 0; i < count; ++i) {
        if (events[i].data.u64 == UINT64_MAX) {
            uint64_t times = 0;
            (void)!read(channel->wake, &times, sizeof times);
        } else {
            look_at_berth(channel, events[i]);
        }
    }
    end_all(channel);
}

void dns_channel_work(dns_channel *channel, int64_t most) {
    const int own = dns_channel_send(channel);
    const auto longest = static_cast<int>(std::min<int64_t>(most, INT_MAX));
    dns_channel_take(channel, own < 0 ? longest : std::min(own, longest));
}

intptr_t dns_channel_descriptor(const dns_channel *channel) {
    return channel->poll;
}

void dns_channel_wake(dns_channel *channel) {
    const uint64_t once = 1;
    (void)!write(channel->wake, &once, sizeof once);
}

} // namespace quillfence::platform
