#include "explain_facts.h"

#include <algorithm>
#include <cstdlib>

#include "program.h"
#include "text.h"
#include "vc_dns.h"
#include "vc_rfc.h"

namespace quillfence::programs {

using data_files::quoted;
using decision::transaction;

bool named_facts::any() const {
    return ip || port || tls || authuser || mua || helo || sender || recipient;
}

// --- by name ------------------------------------------------------------------------------------

static bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// What people write around an address, and what to write instead; "" when it is something else.
static std::string advice_for(const std::string &ip) {
    const size_t colon = ip.find(':');
    if (ip.size() > 2 && ip.front() == '[' && ip.find(']') != std::string::npos) {
        return "write it without brackets and port: " + ip.substr(1, ip.find(']') - 1);
    }
    if (colon != std::string::npos && ip.find(':', colon + 1) == std::string::npos) {
        return "the port is given by --port: --ip " + ip.substr(0, colon) + " --port " +
               ip.substr(colon + 1);
    }
    if (ip.find('/') != std::string::npos) {
        return "one client is judged, no network";
    }
    if (std::count(ip.begin(), ip.end(), '.') == 3 &&
        std::all_of(ip.begin(), ip.end(), [](char c) { return is_digit(c) || c == '.'; })) {
        return "four numbers from 0 to 255 without leading zeros, as in 192.0.2.1";
    }
    return "write an IPv4 address such as 192.0.2.1, or an IPv6 address such as 2001:db8::1";
}

static std::string checked_address(const std::string &ip) {
    unsigned char binary[16];
    if (!vc_inet_pton(2, ip.c_str(), binary) && !vc_inet_pton(23, ip.c_str(), binary)) {
        throw failure("--ip: " + quoted(ip) + " is no address; " + advice_for(ip));
    }
    return ip;
}

static std::string checked_port(const std::string &port) {
    const bool digits =
        !port.empty() && port.size() <= 5 && std::all_of(port.begin(), port.end(), is_digit);
    if (!digits || std::strtoul(port.c_str(), nullptr, 10) > 65535) {
        throw failure("--port: " + quoted(port) + " is no port; write a number from 0 to 65535");
    }
    return port;
}

static bool checked_flag(const char *option, const std::string &text) {
    const std::string word = data_files::lower(text);
    if (word == "1" || word == "yes") {
        return true;
    }
    if (word == "0" || word == "no") {
        return false;
    }
    throw failure(std::string(option) + ": " + quoted(text) + " is neither yes (1) nor no (0)");
}

// Texts end at a NUL in the engine, and a line can't hold an end of line.
static std::optional<std::string> checked_text(const char *option,
                                               const std::optional<std::string> &text) {
    if (text && text->find_first_of("\r\n") != std::string::npos) {
        throw failure(std::string(option) + ": " + quoted(*text) +
                      " holds a line end, which SMTP can't carry");
    }
    return text;
}

transaction transaction_of_facts(const named_facts &facts) {
    transaction of;
    if (facts.ip) {
        of.ip = checked_address(*facts.ip);
    }
    of.port = checked_port(facts.port.value_or("25"));
    of.tls = checked_flag("--tls", facts.tls.value_or("no"));
    of.authuser = checked_text("--authuser", facts.authuser).value_or("");
    of.mua = checked_flag("--mua", facts.mua.value_or("no"));
    of.helo = checked_text("--helo", facts.helo);
    of.sender = facts.sender == "<>" ? "" : checked_text("--sender", facts.sender);
    of.recipient = checked_text("--recipient", facts.recipient);
    return of;
}

// --- the replayer's values ----------------------------------------------------------------------

// The replayer's flags are numbers; a word is 0.
static bool replayer_flag(const std::string &text) {
    return std::strtol(text.c_str(), nullptr, 10) != 0;
}

transaction transaction_of_values(const std::vector<std::string> &values) {
    if (values.size() != 9 || values[0] != "R") {
        throw failure("the replayer's values are nine: R ip port tls authuser mua helo sender "
                      "recipient; or give the facts by name (--ip, --sender ...)");
    }
    transaction of;
    of.ip = values[1];
    of.port = values[2];
    of.tls = replayer_flag(values[3]);
    of.authuser = values[4];
    of.mua = replayer_flag(values[5]);
    of.helo = values[6];
    of.sender = values[7];
    of.recipient = values[8];
    return of;
}

// --- texts --------------------------------------------------------------------------------------

static decision::input_format chosen_format(const std::string &text, const std::string &name,
                                            const std::string &format) {
    if (!format.empty()) {
        if (const auto known = decision::input_format_of_name(format)) {
            return *known;
        }
        throw failure("--from: there is no format " + quoted(format) +
                      "; they are json, policy, tsv, qflog, postfix and exim");
    }
    if (const auto known = decision::input_format_of_content(text)) {
        return *known;
    }
    throw failure(name + ": it looks like no format that is known; name one with --from");
}

decision::input_transaction transaction_of_text(const std::string &text, const std::string &name,
                                                const std::string &format, uint64_t number) {
    const decision::input_format used = chosen_format(text, name, format);
    std::string_view rest = text;
    uint64_t count = 0;
    std::string_view chosen;
    for (std::string_view unit; !(unit = take_input(used, &rest, nullptr)).empty();) {
        ++count;
        if (count == std::max<uint64_t>(number, 1)) {
            chosen = unit;
        }
    }
    if (number == 0 && count > 1) {
        throw failure(name + ": holds " + std::to_string(count) +
                      " transactions, and one is explained; choose it with --number");
    }
    if (chosen.empty()) {
        throw failure(name + ": holds " + counted(count, "transaction"));
    }
    decision::input_result result = read_input(used, chosen);
    if (!result.read) {
        const auto before = std::count(text.data(), chosen.data(), '\n');
        throw failure(name + ":" + std::to_string(before + result.problem.line) + ": " +
                      result.problem.text);
    }
    return std::move(*result.read);
}

} // namespace quillfence::programs
