// A line of Exim's main or reject log:
//
//   2026-11-22 04:51:13 1abcDE-000123-4F <= a@b H=name (helo) [192.0.2.1]:4711 P=esmtps ...
//   2026-11-22 04:51:13 H=(helo) [192.0.2.1] F=<a@b> rejected RCPT <c@d>: reason
//
// in local time unless Exim was told otherwise. Behind the moment may stand its milliseconds, the
// time zone and the process, as in "2026-11-22 04:51:13.123 +0000 [77] ", and at the end of an
// arrival the recipients: " for c@d e@f".
//
// Addresses and HELO stand there as they came, also bytes above 0x7F: Exim escapes only what it
// puts in quotes (T="\303\266"), so that a backslash in an address is the client's own. Where a
// name stands without a HELO behind it, the HELO may have been the same or missing: it is not
// known. Which protocol a message came by tells of TLS and of authentication.
#include <algorithm>

#include "input_formats.h"
#include "log_fields.h"

namespace quillfence::decision {

namespace {

bool is_name(std::string_view text) {
    return !text.empty() && text.find_first_of(" ()[]") == std::string_view::npos;
}

// --- who the client was ---

// "name (helo) [address]", of which the name, the HELO or both may be missing.
constexpr log_field name_and_helo[] = {
    {" (", is_name}, {") [", nullptr}, {"]", is_address}, {"", nullptr}};
constexpr log_field helo_alone[] = {{") [", nullptr}, {"]", is_address}, {"", nullptr}};
constexpr log_field name_alone[] = {{" [", is_name}, {"]", is_address}, {"", nullptr}};
constexpr log_field address_alone[] = {{"]", is_address}, {"", nullptr}};

struct client_form {
    std::string_view begin;
    std::span<const log_field> fields;
    int helo; // which value, -1 for none; the address and the rest are the last two
};

const client_form client_forms[] = {
    {"", name_and_helo, 1}, {"(", helo_alone, 0}, {"", name_alone, -1}, {"[", address_alone, -1}};

struct exim_client {
    std::optional<std::string> helo;
    std::string_view address;
    std::string_view rest; // of the line
};

// What stands behind "H=".
log_readings read_client(std::string_view text, exim_client *client) {
    int readings = 0;
    for (const client_form &form : client_forms) {
        std::vector<std::string_view> values;
        if (!text.starts_with(form.begin)) {
            continue;
        }
        const log_readings got =
            split_log_fields(text.substr(form.begin.size()), form.fields, &values);
        readings += got == log_readings::several ? 2 : got == log_readings::one;
        if (got == log_readings::one) {
            client->helo = form.helo < 0
                               ? std::nullopt
                               : std::optional(std::string(values[static_cast<size_t>(form.helo)]));
            client->address = values[values.size() - 2];
            client->rest = values.back();
        }
    }
    return readings == 0   ? log_readings::none
           : readings == 1 ? log_readings::one
                           : log_readings::several;
}

void take_port(std::string_view *rest, transaction *of) {
    if (!rest->starts_with(':')) {
        return;
    }
    const std::string_view port = rest->substr(1, rest->find(' ') - 1);
    if (is_number(port)) {
        of->port = port;
        rest->remove_prefix(1 + port.size());
    }
}

// --- words "X=value" behind the client ---

// Takes " NAME=value" off the front; the name is of capital letters.
bool take_word(std::string_view *rest, std::string_view *name, std::string_view *value) {
    const size_t equals = rest->find('=');
    if (!rest->starts_with(' ') || equals == std::string_view::npos || equals < 2) {
        return false;
    }
    *name = rest->substr(1, equals - 1);
    const size_t end = std::min(rest->find(' ', equals), rest->size());
    *value = rest->substr(equals + 1, end - equals - 1);
    if (!std::all_of(name->begin(), name->end(), [](char c) { return c >= 'A' && c <= 'Z'; }) ||
        value->starts_with('"')) {
        return false;
    }
    rest->remove_prefix(end);
    return true;
}

// "esmtpsa": s for TLS, a for a user.
void take_protocol(std::string_view protocol, transaction *of) {
    const size_t smtp = protocol.find("smtp");
    if (smtp == std::string_view::npos) {
        return;
    }
    const std::string_view letters = protocol.substr(smtp + 4);
    of->tls = letters.find('s') != std::string_view::npos;
    if (letters.find('a') == std::string_view::npos) {
        of->authuser = "";
    }
}

// "driver:user"
void take_user(std::string_view value, transaction *of) {
    const size_t colon = value.find(':');
    if (colon != std::string_view::npos) {
        of->authuser = value.substr(colon + 1);
        of->mua = true;
    }
}

// The words up to one that the client chooses: its message's id and subject, or the sender.
void take_words(std::string_view *rest, transaction *of) {
    std::string_view name;
    std::string_view value;
    std::string_view left = *rest;
    while (take_word(&left, &name, &value) && name != "S" && name != "T" && name != "F") {
        *rest = left;
        if (name == "P") {
            take_protocol(value, of);
        } else if (name == "X") {
            of->tls = true;
        } else if (name == "A") {
            take_user(value, of);
        }
    }
}

// --- who a message is for ---

// The end of the local part: of a quoted one, behind the quote; npos for one without end.
size_t end_of_local_part(std::string_view text) {
    if (!text.starts_with('"')) {
        return text.find_first_of("@ \"<>");
    }
    for (size_t at = 1; at < text.size(); ++at) {
        if (text[at] == '"') {
            return at + 1;
        }
        at += text[at] == '\\';
    }
    return std::string_view::npos;
}

// Whether a text is one address, with a domain, and nothing else.
bool is_one_address(std::string_view text) {
    const size_t at = end_of_local_part(text);
    return at != 0 && at < text.size() - 1 && text[at] == '@' &&
           text.find_first_of(" \"<>", at) == std::string_view::npos;
}

// The recipient, when the line ends in " for " and one address. Other words that hold such a text
// end in a quote or a bracket, or have words behind them.
std::optional<std::string> only_recipient(std::string_view text) {
    static constexpr std::string_view mark = " for ";
    for (size_t at = text.find(mark); at != std::string_view::npos; at = text.find(mark, at + 1)) {
        const std::string_view rest = text.substr(at + mark.size());
        if (is_one_address(rest)) {
            return std::string(rest);
        }
    }
    return std::nullopt;
}

// --- the two kinds of lines ---

// "a@b H=..."
input_result read_arrival(std::string_view text) {
    static constexpr log_field fields[] = {{" H=", nullptr}, {"", nullptr}};
    input_transaction read;
    exim_client client;
    std::vector<std::string_view> values;
    int readings = 0;
    for (size_t at = text.find(fields[0].end); at != std::string_view::npos && readings < 2;
         at = text.find(fields[0].end, at + 1)) {
        exim_client one;
        const log_readings got = read_client(text.substr(at + fields[0].end.size()), &one);
        if (got == log_readings::several) {
            return several_ways();
        }
        if (got == log_readings::one) {
            ++readings;
            client = one;
            const std::string_view sender = text.substr(0, at);
            read.transaction.sender = sender == "<>" ? std::string() : std::string(sender);
        }
    }
    if (readings != 1) {
        return readings ? several_ways() : refused("the line names no client");
    }
    read.transaction.ip = client.address;
    read.transaction.helo = client.helo;
    take_port(&client.rest, &read.transaction);
    take_words(&client.rest, &read.transaction);
    read.transaction.recipient = only_recipient(client.rest);
    return {std::move(read), {}};
}

bool is_rejection(std::string_view text) {
    return text.ends_with("rejected") || text.ends_with("rejected by ACL") ||
           text.ends_with("rejected by local_scan()");
}

// "<a@b> A=... rejected RCPT <c@d>: reason" behind " F=".
input_result read_refusal(std::string_view text, transaction of) {
    static constexpr log_field with_bracket[] = {
        {">", nullptr}, {" RCPT <", is_rejection}, {">: ", nullptr}, {"", nullptr}};
    static constexpr log_field without_reason[] = {
        {">", nullptr}, {" RCPT <", is_rejection}, {"", [](std::string_view last) {
                                                        return last.ends_with('>') &&
                                                               last.find(">: ") ==
                                                                   std::string_view::npos;
                                                    }}};
    input_transaction read;
    std::vector<std::string_view> values;
    log_readings got = split_log_fields(text, with_bracket, &values);
    if (got == log_readings::none) {
        got = split_log_fields(text, without_reason, &values);
    }
    if (got != log_readings::one) {
        return got == log_readings::several ? several_ways()
                                            : refused("the line does not tell of a recipient");
    }
    std::string_view words = values[1];
    take_words(&words, &of);
    of.sender = values[0];
    of.recipient = values[2].substr(0, values[2].size() - values[2].ends_with('>'));
    read.transaction = std::move(of);
    return {std::move(read), {}};
}

// Behind "H=".
input_result read_rejection(std::string_view text) {
    exim_client client;
    const log_readings got = read_client(text, &client);
    if (got != log_readings::one) {
        return got == log_readings::several ? several_ways() : refused("the line names no client");
    }
    transaction of;
    of.ip = client.address;
    of.helo = client.helo;
    take_port(&client.rest, &of);
    take_words(&client.rest, &of);
    static constexpr std::string_view sender = " F=<";
    if (!client.rest.starts_with(sender)) {
        return refused("the line names no sender");
    }
    return read_refusal(client.rest.substr(sender.size()), std::move(of));
}

// --- the line ---

struct log_line {
    std::string_view moment;
    std::string_view zone; // "+0000"; "" when it is not logged
    std::string_view id;   // of the message; ""
    std::string_view text;
};

bool is_told(std::string_view text) {
    return text.starts_with("<= ") || text.starts_with("H=");
}

bool is_zone(std::string_view text) {
    return text.size() == 5 && (text[0] == '+' || text[0] == '-') && is_number(text.substr(1));
}

std::string_view take_front(std::string_view *text) {
    const size_t end = std::min(text->find(' '), text->size());
    const std::string_view word = text->substr(0, end);
    text->remove_prefix(std::min(end + 1, text->size()));
    return word;
}

// The moment and a blank off the front; "" when there is none.
std::string_view take_moment(std::string_view *text) {
    const size_t end = text->find(' ', log_moment_size);
    if (end == std::string_view::npos || !is_log_moment(text->substr(0, log_moment_size))) {
        return {};
    }
    const std::string_view moment = text->substr(0, end);
    const std::string_view fraction = moment.substr(log_moment_size);
    if (!fraction.empty() && (fraction[0] != '.' || !is_number(fraction.substr(1)))) {
        return {};
    }
    text->remove_prefix(end + 1);
    return moment;
}

std::optional<log_line> line_of(std::string_view text) {
    log_line line;
    line.moment = take_moment(&text);
    if (line.moment.empty()) {
        return std::nullopt;
    }
    std::string_view rest = text;
    std::string_view word = take_front(&rest);
    if (is_zone(word)) {
        line.zone = word;
        text = rest;
        word = take_front(&rest);
    }
    if (word.starts_with('[') && word.ends_with(']')) { // the process's number
        text = rest;
        word = take_front(&rest);
    }
    if (!word.starts_with("H=") && word != "<=" && is_told(rest)) {
        line.id = word;
        text = rest;
    }
    line.text = text;
    return is_told(text) ? std::optional(line) : std::nullopt;
}

} // namespace

bool is_exim_line(std::string_view text) {
    return line_of(text).has_value();
}

input_result read_exim_input(std::string_view unit) {
    const std::optional<log_line> line = line_of(unit);
    if (!line) {
        return refused("the line is no arrival and no rejection of Exim's log");
    }
    const bool arrival = line->text.starts_with("<= ");
    input_result result =
        arrival ? read_arrival(line->text.substr(3)) : read_rejection(line->text.substr(2));
    if (result.read) {
        result.read->id = line->id;
        add_extra(&result.read->extra, "logged", line->moment);
        if (line->zone == "+0000") {
            result.read->time = std::string(line->moment) + 'Z';
            result.read->time[10] = 'T';
        }
    }
    return result;
}

} // namespace quillfence::decision
