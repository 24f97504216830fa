#include "hook_table.h"

namespace quillfence {

static hook_table table;

void set_hooks(const hook_table &slots) {
    table = slots;
}

void set_hooks(uint8_t dns_option, session_hook dynamic_names, session_hook spam_names,
               session_hook confirmed_names, session_hook sender_whitelist,
               session_hook sender_blacklist, session_hook spare_6, session_hook spare_7,
               session_hook helo_whitelist, session_hook helo_blacklist, session_hook ip_whitelist,
               session_hook ip_blacklist, session_hook country_blacklist,
               session_hook recipient_whitelist, mail_log_hook mail_log, message_hook message) {
    set_hooks({
        .dns_option = dns_option,
        .dynamic_names = dynamic_names,
        .spam_names = spam_names,
        .confirmed_names = confirmed_names,
        .sender_whitelist = sender_whitelist,
        .sender_blacklist = sender_blacklist,
        .spare_6 = spare_6,
        .spare_7 = spare_7,
        .helo_whitelist = helo_whitelist,
        .helo_blacklist = helo_blacklist,
        .ip_whitelist = ip_whitelist,
        .ip_blacklist = ip_blacklist,
        .country_blacklist = country_blacklist,
        .recipient_whitelist = recipient_whitelist,
        .mail_log = mail_log,
        .message = message,
    });
}

const hook_table &hooks() {
    return table;
}

} // namespace quillfence
