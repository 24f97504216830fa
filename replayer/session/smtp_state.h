// One SMTP session as the spam engine sees it at the moment of a check. Every rule reads it; the
// packet conversion and the replayer fill it; rules and runner write their findings back. One
// record serves one session and one thread.
#pragma once

#include <cstdint>

#include "vc_list.h"

namespace quillfence {

// Session stages. Stage 2 lies between authentication and HELO and has no name of its own.
enum : uint32_t {
    stage_init = 1,
    stage_auth = 2,
    stage_helo = 3,
    stage_mail = 4,
    stage_rcpt = 5,
    stage_data = 6,
};

// DNS result codes, also those of the verdict caches.
enum : uint32_t {
    resolves_unknown = 0, // not looked up yet
    resolves_yes = 1,
    resolves_no = 2,
    resolves_tempfail = 3,
};

// Values of the sender-format cache.
enum : int32_t {
    sender_format_unknown = 0,
    sender_format_valid = 1,
    sender_format_invalid = 2,
};

// Texts are heap strings owned by the record, null when absent.
struct smtp_state {
    char *ip;           // IPv4 dotted or IPv6 text, as received
    char *port;         // as the text that arrived
    char *rdns;         // borrowed: points into ptr_results; set to null before that is replaced
    char **ptr_results; // null-terminated array of heap strings
    char *helo;
    char *mail_from; // after bounce substitution
    char *rcpt_to;
    char *auth_user;
    char *ip_country;
    char *helo_country; // country code of the HELO domain
    char *mail_country; // country code of the sender's domain
    int32_t rfc;        // sender-format cache
    uint8_t mua;        // a mail user agent that submits to its own server
    uint8_t ndr;        // a bounce
    uint8_t tls;
    uint32_t state; // session stage
    uint32_t helo_resolves;
    uint32_t mail_resolves;
    uint32_t rdns_resolves;
    char *base_dir;           // root of the configuration files for this session
    vc_list_entry *user_dirs; // list of heap strings
    char *hit_name;           // what hit, as the check runner records it
    char *rejection_notice;
    uint8_t localhost;
    uint8_t ipv6;
    uint8_t routable;
    uint8_t notice_flag; // cleared by the check runner before it builds a notice
    char *extra;         // for the embedding server; only released here
};

// The client's reverse name, borrowed: the one that a rule spoke of, else the first; null for none.
inline const char *known_reverse_name(const smtp_state *state) {
    if (state->rdns) {
        return state->rdns;
    }
    return state->ptr_results ? state->ptr_results[0] : nullptr;
}

// A printf-like function that takes one line of a dump.
using state_printer = int (*)(int level, const char *format, ...);

// A new record at stage INIT with everything else absent, unknown or 0; release it with
// free_smtp_state. Null without memory.
// ERROR line: ENOMEM. DEBUG line: "Creating new smtp_state structure".
smtp_state *new_smtp_state();

// Releases the record and everything it owns. Null is accepted.
void free_smtp_state(smtp_state *state);

// Writes a readable dump, one call of printer a line, with level as its first argument. Every
// format ends in "%s", which receives a line feed when newline is non-zero and "" otherwise.
// Absent texts print as "(null)". A null printer or state prints nothing.
// ERROR line: EINVAL.
// Kept on purpose: PORT shows part of the address of the port's text instead of the port, and the
// NDR line shows the mua flag.
void print_state(state_printer printer, int level, const smtp_state *state, int newline);

// The printed name of a stage: "INIT", "HELO", "MAIL", "RCPT", "DATA", else "UNKNOWN".
const char *state_name(uint32_t stage);

// The printed name of a DNS result code: "YES", "NO", "TEMPFAIL", else "UNKNOWN".
const char *resolves_name(uint32_t code);

} // namespace quillfence
