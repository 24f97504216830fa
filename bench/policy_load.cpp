// Asks a policy service as mail servers do, on many connections, and tells how long it took.
//
//   policy_load WHERE REQUESTS CONNECTIONS RATE SECONDS
//
//   WHERE        unix:PATH or inet:ADDRESS:PORT
//   REQUESTS     a file of requests, each ended by an empty line; they are asked in turn, again and
//                again
//   CONNECTIONS  each has at most one request under way, as a mail server's has
//   RATE         requests offered a second, at even distances; 0: as fast as they are answered
//   SECONDS      how long
//
// Prints one JSON object: how many were answered, in how many seconds, how many a second, the times
// in microseconds that half of them, 99 of 100, 999 of 1,000 and all of them stayed within, and how
// often each action was answered. An offered request's time begins when it was due, also when no
// connection was free for it then. Ends with 1 when a connection ends or an answer is none.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "bare_calls.h"

namespace bare = quillfence::bare;

namespace {

using moment = std::chrono::steady_clock::time_point;
using std::chrono::duration;

struct connection {
    int socket = -1;
    moment due; // when the request that is under way should have been sent
    std::string reply;
};

struct load {
    std::vector<std::string> requests;
    std::vector<connection> connections;
    std::deque<uint32_t> idle; // who has waited longest goes first
    int watch = -1;
    double rate = 0;
    uint64_t asked = 0;
    std::vector<uint32_t> microseconds; // of each answer
    std::map<std::string, uint64_t, std::less<>> actions;
};

} // namespace

[[noreturn]] static void fail(std::string_view reason) {
    std::fprintf(stderr, "policy_load: %.*s\n", static_cast<int>(reason.size()), reason.data());
    std::exit(1);
}

static std::vector<std::string> read_requests(const char *path) {
    std::ifstream file(path);
    std::stringstream content;
    content << file.rdbuf();
    const std::string text = content.str();
    std::vector<std::string> found;
    for (size_t at = 0, end; (end = text.find("\n\n", at)) != std::string::npos; at = end + 2)
        found.push_back(text.substr(at, end + 2 - at));
    if (found.empty())
        fail("the file has no request");
    return found;
}

static int connect_to(const std::string &where) {
    const size_t port = where.rfind(':');
    if (where.starts_with("unix:"))
        return bare::connect_to_path(where.c_str() + 5);
    if (where.starts_with("inet:") && port > 5)
        return bare::connect_to_port(where.substr(5, port - 5).c_str(),
                                     static_cast<uint16_t>(std::atoi(where.c_str() + port + 1)));
    fail("write unix:PATH or inet:ADDRESS:PORT");
}

static void connect_all(load *load, const std::string &where, uint32_t count) {
    load->watch = bare::new_watch();
    load->connections.resize(count);
    for (uint32_t i = 0; i < count; i++) {
        const int made = connect_to(where);
        if (made < 0 || !bare::watch_for_reading(load->watch, made, i))
            fail("nobody listens there");
        load->connections[i].socket = made;
        load->idle.push_back(i);
    }
}

// When the next request is due: now, when nothing is said of that.
static moment next_due(const load &load, moment began) {
    if (load.rate == 0)
        return std::chrono::steady_clock::now();
    const duration<double> after(static_cast<double>(load.asked) / load.rate);
    return began + std::chrono::duration_cast<moment::duration>(after);
}

static void ask(load *load, moment due) {
    connection &free = load->connections[load->idle.front()];
    load->idle.pop_front();
    const std::string &request = load->requests[load->asked++ % load->requests.size()];
    free.due = due;
    free.reply.clear();
    if (!bare::send_all(free.socket, request.data(), request.size()))
        fail("a connection has ended");
}

static void count_action(load *load, std::string_view reply) {
    if (!reply.starts_with("action="))
        fail("an answer without an action");
    reply.remove_prefix(7);
    const std::string_view action = reply.substr(0, reply.find_first_of(" \n"));
    if (const auto known = load->actions.find(action); known != load->actions.end())
        known->second++;
    else
        load->actions.emplace(action, 1);
}

static void take_answer(load *load, uint32_t which) {
    connection &from = load->connections[which];
    char piece[4096];
    const ptrdiff_t size = bare::receive_some(from.socket, piece, sizeof piece);
    if (size <= 0)
        fail("a connection has ended");
    from.reply.append(piece, static_cast<size_t>(size));
    if (!from.reply.ends_with("\n\n"))
        return;
    const duration<double, std::micro> took = std::chrono::steady_clock::now() - from.due;
    load->microseconds.push_back(static_cast<uint32_t>(took.count()));
    count_action(load, from.reply);
    load->idle.push_back(which);
}

// Nanoseconds to wait for answers: until the next request is due, if somebody is idle to ask it.
static int64_t patience(const load &load, moment due) {
    if (load.idle.empty())
        return -1;
    const std::chrono::nanoseconds left = due - std::chrono::steady_clock::now();
    return std::max<int64_t>(left.count(), 0);
}

static void run(load *load, double seconds) {
    const moment began = std::chrono::steady_clock::now();
    const moment end =
        began + std::chrono::duration_cast<moment::duration>(duration<double>(seconds));
    for (;;) {
        moment due = next_due(*load, began);
        while (!load->idle.empty() && due <= std::chrono::steady_clock::now() && due < end) {
            ask(load, due);
            due = next_due(*load, began);
        }
        const bool over = due >= end;
        if (over && load->idle.size() == load->connections.size())
            return;
        uint32_t ready[64];
        const int count =
            bare::wait_for_reading(load->watch, ready, over ? -1 : patience(*load, due));
        for (int i = 0; i < count; i++)
            take_answer(load, ready[i]);
    }
}

static void print(load *load, double seconds) {
    std::vector<uint32_t> &times = load->microseconds;
    if (times.empty())
        fail("nothing was answered");
    std::sort(times.begin(), times.end());
    const auto within = [&](double share) {
        return times[static_cast<size_t>(static_cast<double>(times.size() - 1) * share)];
    };
    std::printf("{\"answered\": %zu, \"seconds\": %.3f, \"rate\": %.0f, \"p50\": %u, \"p99\": %u, "
                "\"p999\": %u, \"max\": %u, \"actions\": {",
                times.size(), seconds, static_cast<double>(times.size()) / seconds, within(0.5),
                within(0.99), within(0.999), times.back());
    const char *between = "";
    for (const auto &[action, count] : load->actions) {
        std::printf("%s\"%s\": %ju", between, action.c_str(), static_cast<uintmax_t>(count));
        between = ", ";
    }
    std::printf("}}\n");
}

int main(int argc, char **argv) {
    if (argc != 6)
        fail("usage: policy_load WHERE REQUESTS CONNECTIONS RATE SECONDS");
    load load;
    load.requests = read_requests(argv[2]);
    load.rate = std::atof(argv[4]);
    connect_all(&load, argv[1], static_cast<uint32_t>(std::max(std::atoi(argv[3]), 1)));
    const moment began = std::chrono::steady_clock::now();
    run(&load, std::atof(argv[5]));
    const duration<double> took = std::chrono::steady_clock::now() - began;
    print(&load, took.count());
}
