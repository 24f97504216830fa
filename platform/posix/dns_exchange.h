// One question to one DNS server: c-ares carries the messages, dns_answer.h reads them.
#pragma once

#include <cstdint>

#include <ares.h>

#include "dns_question.h"
#include "platform/dns.h"

namespace quillfence::platform {

// What a question may still spend, in milliseconds.
struct dns_time {
    int64_t connecting;
    int64_t answering;
    int64_t both;
};

// What came of a question to one server.
struct dns_outcome {
    bool finished;
    bool answered; // by a message of the server
    uint32_t status;
    dns_record *records;
    dns_details *details; // null: not wanted
};

// What the sockets of one question were used for.
struct dns_traffic {
    bool stream;
    int datagrams; // the socket, -1 for none
    uint32_t tries;
};

// Sockets of a channel that raise no SIGPIPE, and that are counted in `carried` as long as the
// channel lives.
void use_counted_sockets(ares_channel channel, dns_traffic *carried);

// Whether a connection is left from an earlier question.
bool has_connection(ares_channel channel);

// Asks, and waits for the answer as long as the budget allows; what was spent is taken from it. The
// records of the outcome are the caller's. `details` may be null.
dns_outcome ask_dns_server(ares_channel channel, const dns_question &asked, dns_time *budget,
                           dns_details *details);

} // namespace quillfence::platform
