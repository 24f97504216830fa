// A configuration with a file of every kind, and sessions that meet it, for the tests that run the
// whole engine.
#pragma once

#include <string>

#include "dns_script.h"
#include "drive_c.h"
#include "heap_text.h"
#include "owned_session.h"
#include "platform/dns.h"
#include "platform/file.h"
#include "quillfence-iprange.h"
#include "quillfence-spam-hooks.h"
#include "tiny_rex_storage.h"

namespace quillfence::testing {

inline void write_patterns(const char *path, const char *pattern) {
    TRex *expression = trex_compile_ex(pattern, trex_fold_case);
    FILE *stream = platform::stream_open(path, "w+b");
    trs_set_header(stream);
    trs_store(stream, expression);
    fclose(stream);
    trex_free(expression);
}

// Lists, ranges, patterns, block maps, sender forgery, enabled rules.
inline void write_configuration(const drive_c &drive) {
    const std::string root = "c:/quillfence/";
    drive.write(root + "from_whitelist", "*@friend.example\n");
    drive.write(root + "from_blacklist", "*@foe.example\n");
    drive.write(root + "exempt_users", "postmaster@here.example\n");
    drive.write(root + "exempt_ips", "192.0.2.200\n");
    drive.write(root + "blocked_ips", "192.0.2.66\n");
    ipr_add(root.c_str(), "exempt_ips.range", "192.0.2.240", "192.0.2.250", "", nullptr);
    ipr_add(root.c_str(), "blocked_ips.range", "192.0.2.70", "192.0.2.79", "", nullptr);
    drive.make_folder(root + "dynaregex");
    write_patterns(dyna_regex_file, "dyn[0-9].*");
    write_patterns(spam_regex_file, "dyn[0-9].*");
    write_patterns(confirmed_regex_file, "dyn[0-9].*");
    write_patterns(exempt_regex_file, "dyn9.*");
    std::string map(1024, '\0');
    map.replace(192 * 4, 4, "\xFF\xFF\xFF\xFF");
    drive.write(root + "bms/lists_to_update", "one\ntwo\n");
    drive.write(root + "bms/one", map);
    drive.write(root + "bms/two", map);
    drive.write(root + "control/bms.enabled", "one\n");
    drive.write(root + "rbl.enabled", "rbl.example\n");
    drive.write(root + "control/enabled", "1\n");
    drive.write(root + "control/valid_domain_ips", "tied.example : 198.51.100.0/24\n");
    drive.write(
        root + "control/rules.enabled",
        "require_helo\nvalid_helo_domain\nresolve_helo_domain\nvalid_from_domain\n"
        "check_dynamic_reverse_dns\ncheck_ip_reverse_dns\nvalid_ptr\nknown_sender_forgery\n");
    drive.make_folder(root + "log");
}

// A well-behaved client (192.0.2.1, mail.good.example) and one with a dynamic name (192.0.2.2).
inline void write_zones(dns_script *dns) {
    const std::vector<dns_script::record> address = {{platform::dns_type_a, ""}};
    dns->ptr("1.2.0.192.in-addr.arpa.", {"mail.good.example"});
    dns->ptr("2.2.0.192.in-addr.arpa.", {"dyn1-192-0-2-2.pool.example"});
    dns->ptr("3.2.0.192.in-addr.arpa.", {"dyn9-192-0-2-3.pool.example"});
    for (const char *name : {"mail.good.example.", "good.example.", "tied.example."}) {
        dns->answer(name, platform::dns_type_a, 0, address);
    }
}

struct client {
    const char *name;
    const char *ip;
    const char *helo;
    const char *sender;
    const char *recipient;
};

inline constexpr client clients[] = {
    {"good", "192.0.2.1", "mail.good.example", "a@good.example", "b@here.example"},
    {"dynamic", "192.0.2.2", "mail.good.example", "a@good.example", "b@here.example"},
    {"nothing right", "192.0.2.5", "no.such.example", "a@no.such.example", "b@[1.2.3.4]"},
    {"forged", "192.0.2.1", "mail.good.example", "a@tied.example", "b@here.example"},
    {"blacklisted", "192.0.2.75", "", "a@foe.example", "b@here.example"},
    {"whitelisted", "192.0.2.245", "x", "a@friend.example", "postmaster@here.example"},
};

// The session of a client as a packet brings it, before __process_state.
inline owned_session session_of(const client &who) {
    owned_session state(new_smtp_state());
    state->ip = heap_text(who.ip);
    state->port = heap_text("25");
    state->helo = heap_text(who.helo);
    state->mail_from = heap_text(who.sender);
    state->rcpt_to = heap_text(who.recipient);
    state->state = stage_rcpt;
    return state;
}

} // namespace quillfence::testing
