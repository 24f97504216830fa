// Request and response packets: how a mail server's connector hands a session to the engine and
// gets the verdict back. The replayer builds a request from its command line.
//
// The two records, their conversions, and their bytes on a stream. All ERROR lines come under
// "qfd-packet" and the operation's own name; EINVAL and ENOMEM stand for the system's texts.
//
// On the wire integers are little-endian; a text is a 16-bit length and that many bytes, without
// a NUL; an absent text is the length 0. Every field is there whatever the state:
//
//   request   id u16, state u8, ip, port, tls u8, auth, mua u8, helo, from, to
//   response  id u16, result u32, message, spam hit
#pragma once

#include <cstdint>

#include "smtp_state.h"
#include "vc_file.h"

namespace quillfence {

inline constexpr uint16_t QFD_PACKET_ID = 0xF3EA;

// How much of a transaction a request carries. Each state carries what the one before it does.
enum : uint8_t {
    QFD_STATE_CONNECT = 1, // "C": ip, port, tls
    QFD_STATE_AUTH = 2,    // "A": and auth
    QFD_STATE_MAIL = 3,    // "M": and mua, helo, from
    QFD_STATE_RCPT = 4,    // "R": and to
    QFD_STATE_TEST = 255,  // "T": id and state only
};

// Texts are heap strings owned by the record, null when absent. A length is the text's byte count
// without the NUL, 0 for an absent text.
// Kept on purpose: a text over 65535 bytes keeps only the low 16 bits of its length.
struct qfd_request_packet {
    uint16_t id;
    uint8_t state;
    uint16_t iplen;
    char *ip;
    uint16_t portlen;
    char *port;
    uint8_t tls;
    uint16_t authlen;
    char *auth;
    uint8_t mua;
    uint16_t helolen;
    char *helo;
    uint16_t fromlen;
    char *from;
    uint16_t tolen;
    char *to;
};

struct qfd_response_packet {
    uint16_t id;
    uint32_t result; // chosen by the daemon; 0 is never valid
    uint16_t message_len;
    char *message;
    uint16_t spam_hit_len;
    char *spam_hit; // name of the rule that hit
};

// Null is accepted. The record and its texts are released.
void qfd_request_packet_free(qfd_request_packet *packet);
void qfd_response_packet_free(qfd_response_packet *packet);

// A request from a command line: argv[1] is the mode letter, argv[2] to argv[9] are ip, port, tls,
// authuser, mua, helo, sender, recipient, as far as the mode carries them; argc must be the mode's
// count exactly (C 5, A 6, M 9, R 10, T 2; the program's name counts). The caller frees the
// record; null on failure.
//   tls, mua   1 when the argument's decimal value is not 0; a word is 0
//   authuser   "" leaves auth absent
//   helo, sender, recipient, port   copied even when empty
// ERROR lines: EINVAL for argc below 2, a null vector, an unknown letter or a wrong count; ENOMEM
// for a failed copy and, whatever the cause, for an ip that __process_ip_arg refuses.
qfd_request_packet *qfd_request_packet_from_args(int argc, char **argv);

// A request from a session at stage INIT, AUTH, MAIL or RCPT; empty texts stay absent. The caller
// frees the record; null on failure.
// ERROR lines: EINVAL for a null session, a missing or empty ip, or any other stage; ENOMEM.
qfd_request_packet *qfd_request_packet_from_smtp_state(const smtp_state *state);

// A session from a valid request; texts are copied as strings. The caller frees it with
// free_smtp_state; null on failure.
// ERROR lines: those of validation; EINVAL for a packet that is null, invalid or of state TEST;
// ENOMEM.
// Kept on purpose: a RCPT packet without a recipient passes validation and is refused here with
// ENOMEM.
smtp_state *qfd_request_packet_to_smtp_state(const qfd_request_packet *packet);

// 1 when valid, else 0. A TEST packet needs only the id.
// ERROR lines: EINVAL (null), "invalid packet id detected!", "invalid state type detected",
// "invalid IP address detected", "invalid authentication argument detected!".
// Kept on purpose: only the AUTH packet must name a user, MAIL and RCPT packets need not.
int qfd_request_packet_validate(const qfd_request_packet *packet);

// Writes the record field by field, one information line a field. Null is ignored. Absent texts
// show as "empty" in a request (but an absent ip as "(null)") and as "none" in a response.
void qfd_request_packet_dump(const qfd_request_packet *packet);
void qfd_response_packet_dump(const qfd_response_packet *packet);

// The packet state of a mode letter, 0 when unknown, and its argument count in *expected_argc,
// which stays untouched when unknown. Only the first character of arg counts.
// ERROR line: EINVAL for a null or empty arg or a null place.
uint8_t __process_state_arg(const char *arg, int *expected_argc);

// A new string with the client address of an argument: IPv6 in its short form, of an IPv4-mapped or
// IPv4-compatible one (nothing but "::ffff:" or "::" before it) the IPv4 address alone, anything
// else as it is. Null on failure. ERROR lines: EINVAL for a null or empty arg, "Unknown error
// compressing IPv6 [%s] to [%s]"; a failed conversion or copy has no line here.
char *__process_ip_arg(const char *arg);

// The operations on a stream: any handle of the file layer. They return 1, 0 on failure; the
// invalid handle is refused with EINVAL. Nothing is retried. An end of the stream inside a packet
// reads as zero bytes.

// Writes length and the first length bytes of text.
// ERROR line: EINVAL for a length without a text or above the text's own. A failed write has no
// line here.
int qfd_packet_write_string(vc_handle stream, uint16_t length, const char *text);

// Reads a length and a text into *length and *text (a new heap string, null for length 0). A text
// that *text held is freed first.
// ERROR lines: EINVAL, ENOMEM, "Error reading packet string length: %s", "Error reading packet
// string: %s" (errno's text).
int qfd_packet_read_string(vc_handle stream, uint16_t *length, char **text);

// ERROR lines: EINVAL, those of validation, "Invalid daemon request packet", "Failed to write
// daemon request packet: %s".
int qfd_request_packet_send(vc_handle stream, const qfd_request_packet *packet);

// Reads id and state, the first part of a request. Returns the state, or 0.
// ERROR lines: EINVAL, "Failed to read in the packet id: %s", "The packet id does not have the
// expected value", "Failed to read in the packet state: %s", "The packet state is not recognized".
uint8_t qfd_request_packet_receive_state(vc_handle stream);

// Reads the rest of a request. The record has id and state 0: the caller sets them from what
// qfd_request_packet_receive_state returned, and frees the record. Null on failure.
// ERROR lines: EINVAL, ENOMEM, "Failed to read daemon request packet: %s" and those of
// qfd_packet_read_string.
qfd_request_packet *qfd_request_packet_receive(vc_handle stream);

// Null texts are sent as absent; of a longer text only the first (length modulo 65536) bytes go
// out, on purpose.
// ERROR lines: EINVAL (also for the result 0), "Failed to write daemon response packet: %s".
int qfd_response_packet_send(vc_handle stream, uint32_t result, const char *message,
                             const char *spam_hit);

// The caller frees the record; null on failure.
// ERROR lines: EINVAL, ENOMEM, "Failed to read daemon response packet: %s", "Invalid daemon
// response packet id [%d] or result [%d]" and those of qfd_packet_read_string.
qfd_response_packet *qfd_response_packet_receive(vc_handle stream);

} // namespace quillfence
