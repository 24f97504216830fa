// The system's DNS client: DnsQuery_A on Windows, c-ares with the settings of /etc/resolv.conf on
// Linux.
//
// On Linux, QUILLFENCE_DNS_SERVER names one other server to ask: an IPv4 or IPv6 address,
// optionally with a port ("192.0.2.53", "192.0.2.53:5353", "2001:db8::53", "[2001:db8::53]:5353").
// A value that reads as none of these makes every query fail with 87.
//
// Names are absolute with or without a final dot; no search domain is ever added on Linux. On
// Windows a name of one label without a final dot may get the machine's suffixes, so callers
// that mean the name itself end it in a dot.
//
// Statuses are the DnsQuery_A numbers on both. On Linux:
//   0     no error, and the answer section holds a record, of whatever type
//   9501  no error, but no record
//   9000 + the server's response code (9002 SERVFAIL, 9003 NXDOMAIN, 9005 REFUSED), also when the
//         answer section holds records: an alias that leads to a missing name is a missing name
//   9502  an answer that can't be read
//   1460  a server was silent for too long
//   9002  no server could be reached
//   123   a name that can't be asked: empty, an empty label, a label over 63 bytes, a name over
//         255 bytes with its length bytes
//   8     no memory
//
// Time limits on Linux: a query spends at most 3 seconds on connecting (TCP) and at most 3 seconds
// on waiting for answers, 6 in all, however many servers there are. A server but the last gets
// half of what is left, at most the first three are asked. A server that fails or refuses passes
// the question on to the next; when none does better, the first response code is the result.
// Over UDP a question is repeated once, after a second, and a cut answer is fetched again over
// TCP; a TCP connection that the server cuts is opened again up to twice.
// Windows has limits of its own.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quillfence::platform {

inline constexpr uint16_t dns_type_a = 1;
inline constexpr uint16_t dns_type_ns = 2;
inline constexpr uint16_t dns_type_cname = 5;
inline constexpr uint16_t dns_type_ptr = 12;
inline constexpr uint16_t dns_type_mx = 15;
inline constexpr uint16_t dns_type_aaaa = 28;

inline constexpr uint32_t dns_query_standard = 0;
inline constexpr uint32_t dns_query_tcp_only = 2;

inline constexpr uint32_t dns_status_rcode_base = 9000;
inline constexpr uint32_t dns_status_servfail = 9002;
inline constexpr uint32_t dns_status_nxdomain = 9003;
inline constexpr uint32_t dns_status_refused = 9005;
inline constexpr uint32_t dns_status_no_records = 9501;
inline constexpr uint32_t dns_status_bad_packet = 9502;
inline constexpr uint32_t dns_status_timeout = 1460;

// One record of an answer, in the answer's order.
struct dns_record {
    dns_record *next;
    uint16_t type;
    char *target; // PTR: the name it points to, without the final dot and with its case, bytes
                  // as dns_answer.h tells ("" for the root); null for other types. On Windows
                  // a dot or backslash inside a label stands there as the system tells it
};

// Asks for the records of one type; options is dns_query_standard or dns_query_tcp_only. On
// status 0 *records is the answer (all records of its answer section, so aliases may stand in
// front), to be released with dns_release; otherwise it is null. A null name or null records: 87.
// Safe from several threads at once.
uint32_t dns_query(const char *name, uint16_t type, uint32_t options, dns_record **records);
void dns_release(dns_record *records); // null is accepted

// How a question was carried. Of a client that does not say it, nothing is known.
enum class dns_transport : uint8_t { unknown, udp, tcp };

// One record of an answer section, as text.
struct dns_detail_record {
    dns_detail_record *next;
    uint16_t type;
    char *text; // in the same block of memory
};

// What is known of one question and its answer, besides the records that the engine uses.
//
// The records are the whole answer section in its order, also that of an answer with an error code,
// each as a line of a zone file has it: the type's name and the data, names with their final dot:
// "CNAME x.example.", "A 127.0.0.2", "AAAA 2001:db8::1", "PTR mail.example.", "MX 10
// mail.example.". Data of another type, or data that is not in its type's form, is in the form of
// RFC 3597: "TYPE99 \# 3 0a0b0c"; of another class with it in front: "CLASS3 A \# 2 0102". More
// than 256 bytes of it end in "...". The text is safe to show: bytes as dns_answer.h tells, all of
// it printable ASCII. At most 1,000 records are kept; more are counted.
struct dns_details {
    char server[64]; // "192.0.2.53:53", "[2001:db8::53]:53"; "" when it is not known
    dns_transport transport;
    uint32_t tries;        // how often it was sent, to all servers; 0 when it is not known
    int64_t microseconds;  // from the question to the answer; -1 when it is not known
    uint32_t status;       // what dns_query returns
    int32_t response_code; // of the answer's header; -1 when there was no answer to read
    dns_detail_record *records;
    dns_detail_record *last; // of them
    uint32_t record_count;   // of records
    uint32_t left_out;       // records beyond the thousand
    bool no_memory;          // for a text: records are missing
};

inline constexpr uint32_t dns_detail_records_max = 1000;
inline constexpr uint32_t dns_detail_data_max = 256; // bytes of data of an unknown form

// As dns_query, and fills *details (null: does not), which the caller then clears; a record of them
// that can't be had changes nothing about the result. server is the one whose answer or silence
// the status is; when no server could be reached, the last one tried. On Windows the system's
// client tells neither server, transport nor tries, the response code is the one that the status
// stands for, and of records of other types than A, AAAA, CNAME, NS, PTR and MX there is the type
// alone.
uint32_t dns_query_detailed(const char *name, uint16_t type, uint32_t options, dns_record **records,
                            dns_details *details);

// A client for many questions: it keeps the system's settings and, on Linux, its TCP connections
// from one question to the next (a connection a question ends near 470 questions a second, for want
// of ports). UDP questions get a socket each, so that their ports can't be guessed. A connection
// that the server has closed meanwhile is opened again; after a question that no server answered,
// settings are read and connections are opened anew. For one thread at a time.
struct dns_client; // opaque
// server names the server to ask, in the form of QUILLFENCE_DNS_SERVER and in front of it; null: as
// dns_query. 0, 87 for a text that names none, 50 for any on Windows, 8. *opened is null on
// failure.
uint32_t dns_client_open(const char *server, dns_client **opened);
void dns_client_close(dns_client *client); // null is accepted
// Questions from now on take at most that many milliseconds in all, if the limits above allow more;
// 0 leaves no time: 1460 without asking. Negative: only those limits. No effect on Windows.
void dns_client_limit(dns_client *client, int64_t milliseconds);
// As dns_query_detailed; null for the client: that itself.
uint32_t dns_client_query(dns_client *client, const char *name, uint16_t type, uint32_t options,
                          dns_record **records, dns_details *details);

// Details of which nothing is known yet.
dns_details dns_no_details();
// Releases the records; nothing is known any more. Null is accepted.
void dns_details_clear(dns_details *details);
// Appends a copy of the text as long as there is room, and counts it in any case.
void dns_details_add(dns_details *details, uint16_t type, const char *text);

// The name of a record type, "A", or "TYPE99" for one that the seam has no name for, written into
// the 16 bytes of text, which is returned.
inline constexpr size_t dns_type_name_size = 16;
const char *dns_type_name(uint16_t type, char *text);

// Replaces dns_query for tests; null restores the system's. The stand-in's records are made with
// dns_new_record and released by dns_release.
using dns_stand_in = uint32_t (*)(const char *name, uint16_t type, uint32_t options,
                                  dns_record **records);
void set_dns_stand_in(dns_stand_in stand_in);
// A record with a copy of the target (may be null); null without memory.
dns_record *dns_new_record(uint16_t type, const char *target);

} // namespace quillfence::platform
