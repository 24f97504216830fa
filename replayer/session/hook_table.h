// The hook table: one option byte and fifteen function slots through which rules reach the list
// files, the mail log and a supplier of rejection texts without depending on them. There is one
// for the process, written at start-up and only read afterwards.
#pragma once

#include <cstdint>

#include "smtp_state.h"

namespace quillfence {

// 1 when the session's value is listed, else 0.
using session_hook = uint8_t (*)(smtp_state *state);
// Writes one line of the mail log.
using mail_log_hook = void (*)(smtp_state *state, const char *rule_name, uint8_t log_type);
// A new heap string with the rejection text for a rule, or null to use the rule's own.
using message_hook = char *(*)(const char *rule_name, smtp_state *state);

// An empty (null) slot means "no match" to the rule that reads it. All slots are empty and the
// option is 0 until the engine's start-up fills the table.
struct hook_table {
    uint8_t dns_option = 0;                     // handed unchanged to every DNS lookup
    session_hook dynamic_names = nullptr;       // rule_check_dynamic_reverse_dns
    session_hook spam_names = nullptr;          // rule_check_reverse_dns_list
    session_hook confirmed_names = nullptr;     // rule_check_confirmed_dyna
    session_hook sender_whitelist = nullptr;    // rule_from_whitelist
    session_hook sender_blacklist = nullptr;    // rule_from_blacklist
    session_hook spare_6 = nullptr;             // read by nobody
    session_hook spare_7 = nullptr;             // read by nobody
    session_hook helo_whitelist = nullptr;      // rule_helo_whitelist
    session_hook helo_blacklist = nullptr;      // rule_helo_blacklist
    session_hook ip_whitelist = nullptr;        // rule_ip_whitelist
    session_hook ip_blacklist = nullptr;        // rule_ip_blacklist
    session_hook country_blacklist = nullptr;   // rule_country_blacklist
    session_hook recipient_whitelist = nullptr; // rule_to_whitelist
    mail_log_hook mail_log = nullptr; // for the embedding server; nothing in a check calls it
    message_hook message = nullptr;   // the check runner, for rejection notices
};

// Replaces the whole table; a slot that is not named becomes empty:
//
//     set_hooks({.dns_option = 1, .ip_whitelist = ipwhitelist_hook});
//
// Nothing is checked. Not to be called while checks are running.
void set_hooks(const hook_table &slots);

// The same for embedding servers that hand the slots over one by one, in the order of the record.
void set_hooks(uint8_t dns_option, session_hook dynamic_names, session_hook spam_names,
               session_hook confirmed_names, session_hook sender_whitelist,
               session_hook sender_blacklist, session_hook spare_6, session_hook spare_7,
               session_hook helo_whitelist, session_hook helo_blacklist, session_hook ip_whitelist,
               session_hook ip_blacklist, session_hook country_blacklist,
               session_hook recipient_whitelist, mail_log_hook mail_log, message_hook message);

// The table as it is now.
const hook_table &hooks();

} // namespace quillfence
