// One SMTP session as the spam engine sees it at the moment of a check. Every rule reads it; the
// packet conversion and the replayer fill it; rules and runner write their findings back.
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
    char *ip;
    char *port;
    char *rdns;         // borrowed: points into ptr_results; set to null before that is replaced
    char **ptr_results; // null-terminated array of heap strings
    char *helo;
    char *mail_from;
    char *rcpt_to;
    char *auth_user;
    char *ip_country;
    char *helo_country;
    char *mail_country;
    int32_t rfc; // sender-format cache
    uint8_t mua;
    uint8_t ndr;
    uint8_t tls;
    uint32_t state; // session stage
    uint32_t helo_resolves;
    uint32_t mail_resolves;
    uint32_t rdns_resolves;
    char *base_dir;
    vc_list_entry *user_dirs; // list of heap strings
    char *hit_name;
    char *rejection_notice;
    uint8_t localhost;
    uint8_t ipv6;
    uint8_t routable;
    uint8_t notice_flag;
    char *extra;
};

using state_printer = int (*)(int level, const char *format, ...);

smtp_state *new_smtp_state();
void free_smtp_state(smtp_state *state);
void print_state(state_printer printer, int level, const smtp_state *state, int newline);
const char *state_name(uint32_t stage);
const char *resolves_name(uint32_t code);

} // namespace quillfence
