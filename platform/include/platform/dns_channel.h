// A DNS client with many questions on their way at once, for one thread. Linux only, and over TCP
// only; what Windows has is dns.h's client, a question a thread.
//
// Each question means what it means to dns_client_query(): the same servers, time limits, tries,
// statuses and details. What differs is how it is carried: up to 8 connections to a server carry
// all questions, each connection many of them, in whatever order their answers come. A connection
// that a server cuts counts as a try for those questions alone during which it gave no other
// answer; the others are sent again. A server that cuts connections after so many answers gets no
// more questions a connection than that, and up to 64 connections. A connection that was silent to
// a question until its end gets no more questions. One without questions is closed after 10
// seconds.
//
// It holds: some 700 bytes a question, up to 65,536 bytes a connection of what came and 256 KiB
// of what is to be sent. An answer to nobody's question is dropped; on a connection without
// questions it ends the connection. A question is sent to a server 16 times at most.
#pragma once

#include <cstdint>

#include "platform/dns.h"

namespace quillfence::platform {

struct dns_channel; // opaque

inline constexpr unsigned dns_channel_questions_max = 16384; // on their way at once

// What came of a question, all of it borrowed until this returns. It may ask further questions; it
// must not close the channel.
using dns_channel_listener = void (*)(void *context, void *tag, uint32_t status,
                                      const dns_record *records, const dns_details *details);

// server as in dns_client_open(). 0, 87 for a text that names none, 8; 50 where there is no such
// client: on Windows, with a stand-in for dns_query, and for a single server with a link-local
// address, whose interface only the other client knows. *opened is null on failure.
uint32_t dns_channel_open(const char *server, dns_channel_listener told, void *context,
                          dns_channel **opened);
// The questions that are on their way are dropped; nobody is told. Null is accepted.
void dns_channel_close(dns_channel *channel);

// Asks over TCP. limit is the most milliseconds that it may take, 0 for no time, negative for the
// limits of dns.h alone. The listener is told once, perhaps before this returns; 8 when there are
// too many questions.
void dns_channel_ask(dns_channel *channel, const char *name, uint16_t type, int64_t limit,
                     void *tag);
// Sends, waits until there is something to do, but no more than that many milliseconds, and does
// it.
void dns_channel_work(dns_channel *channel, int64_t most);
// Ends the wait of the thread that works, or its next one. The only one for any thread.
void dns_channel_wake(dns_channel *channel);

// dns_channel_work() in two steps, for a thread that waits for other things in between, until the
// descriptor is readable or the time is over.
//
// Returns how many milliseconds the wait may last, -1 for however long.
int dns_channel_send(dns_channel *channel);
// Waits as long as that, 0 for not at all, and does what there is to do.
void dns_channel_take(dns_channel *channel, int wait);
intptr_t dns_channel_descriptor(const dns_channel *channel);

} // namespace quillfence::platform
