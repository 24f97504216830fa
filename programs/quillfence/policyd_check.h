// quillfence policyd --check: what would go wrong once mail servers ask, and what to do about it.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "policyd_command.h"
#include "source.h"

namespace quillfence::programs {

enum class check_result : uint8_t { ok, warning, error };

struct check_line {
    check_result is;
    std::string subject; // "unix:/run/quillfence/policy", "rbl.example"
    std::string text;    // what was found, and behind a semicolon what to do about it
    bool operator==(const check_line &) const = default;
};
using check_report = std::vector<check_line>;

// Tries each place as the service would: it listens for a moment, and removes the socket. Whether
// they get there is looked at for those of the users that this machine has.
void check_listening(const std::vector<std::string> &places, uint32_t mode,
                     const std::vector<const char *> &users, check_report *report);
// Postfix's and Exim's, on Debian and elsewhere.
const std::vector<const char *> &mail_server_users();
// Of a place "unix:PATH": how main.cf names it, or why Postfix does not get there. (Whether its
// services run in a chroot stands in master.cf, which may not be ours to read.)
check_line postfix_line(const std::string &place);

// The folder that stands for c:/quillfence, as `quillfence-data verify` looks it over.
void check_configuration(const std::string &base, check_report *report);

// The decision log ("" for none) and the metrics file ("" for none) can be written. A log that is
// missing is not made.
void check_log(const std::string &path, check_report *report);
void check_metrics(const std::string &path, check_report *report);

// The resolver answers, by UDP and by TCP, and does not refuse.
void check_resolver(dns_sources::source &dns, check_report *report);
// Each DNS block list lists 127.0.0.2 and does not list 127.0.0.1, as RFC 5782 has it.
void check_block_lists(dns_sources::source &dns, const std::vector<std::string> &zones,
                       check_report *report);

// All of that for a run with these arguments: prints the report. exit_status::no when there is an
// error in it. A server that can't be asked is a failure.
exit_status check_policyd(const policyd_arguments &arguments, uint32_t socket_mode,
                          std::ostream &out);

// A line for each: "ok       subject: text".
void write_report(const check_report &report, std::ostream &out);
bool has_errors(const check_report &report);

} // namespace quillfence::programs
