// A line of Postfix's log, one of these behind the program's name:
//
//   NOQUEUE: reject: RCPT from name[192.0.2.1]: 554 5.7.1 text; from=<a@b> to=<c@d> proto=ESMTP
//     helo=<h>                               whatever was done to a command that a client gave
//   4F8: client=name[192.0.2.1], sasl_method=PLAIN, sasl_username=user
//   4F8: from=<a@b>, size=1, nrcpt=1 (queue active)
//   4F8: to=<c@d>, orig_to=<e@f>, relay=...
//
// Each tells a part of a transaction, under the queue's id. The log has no word of TLS. A rejected
// command of a user has " sasl_username=<user>" at its end; a HELO may look like that, too, so that
// such a line can be read in two ways.
#include <algorithm>

#include "input_formats.h"
#include "log_fields.h"

namespace quillfence::decision {

namespace {

// "name[address]", perhaps with ":port" behind it, as Postfix names a client.
struct client_name {
    std::string_view address;
    std::string_view port; // "" when it is not logged
};

std::optional<client_name> client_of(std::string_view text) {
    const size_t begin = text.find('[');
    const size_t end = text.find(']', std::min(begin, text.size()));
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    const client_name client = {text.substr(begin + 1, end - begin - 1), text.substr(end + 1)};
    const bool has_port = client.port.starts_with(':') && is_number(client.port.substr(1));
    if (!is_address(client.address) || (!client.port.empty() && !has_port)) {
        return std::nullopt;
    }
    return client_name{client.address, client.port.substr(has_port)};
}

bool is_client(std::string_view text) {
    return client_of(text).has_value();
}

void take_client(std::string_view text, transaction *of) {
    const std::optional<client_name> client = client_of(text);
    of->ip = client->address;
    if (!client->port.empty()) {
        of->port = client->port;
    }
}

bool is_word(std::string_view text) {
    return !text.empty() && text.find(' ') == std::string_view::npos;
}

// --- what was done to a client's command ---

// The values of a shape, by what they mean.
enum class meaning : uint8_t { stage, client, text, sender, recipient, protocol, helo, user };

struct command_field {
    meaning what;
    log_field field;
};

bool ends_in_bracket(std::string_view text) {
    return text.ends_with('>');
}

bool is_recipient_stage(std::string_view text) {
    return text == "RCPT";
}

bool is_sender_stage(std::string_view text) {
    return text == "MAIL";
}

bool is_early_stage(std::string_view text) {
    return text == "CONNECT" || text == "HELO" || text == "EHLO";
}

using command_form = std::vector<command_field>;

// Every front with every end.
std::vector<command_form> all_command_forms() {
    // What Postfix knows at each stage is logged, and nothing else.
    const command_form fronts[] = {
        {{meaning::stage, {" from ", is_recipient_stage}},
         {meaning::client, {": ", is_client}},
         {meaning::text, {"; from=<", nullptr}},
         {meaning::sender, {"> to=<", nullptr}},
         {meaning::recipient, {"> proto=", nullptr}}},
        {{meaning::stage, {" from ", is_sender_stage}},
         {meaning::client, {": ", is_client}},
         {meaning::text, {"; from=<", nullptr}},
         {meaning::sender, {"> proto=", nullptr}}},
        {{meaning::stage, {" from ", is_early_stage}},
         {meaning::client, {": ", is_client}},
         {meaning::text, {"; proto=", nullptr}}},
    };
    const command_form ends[] = {
        {{meaning::protocol, {"", is_word}}},
        {{meaning::protocol, {" helo=<", is_word}}, {meaning::helo, {"", ends_in_bracket}}},
        {{meaning::protocol, {" helo=<", is_word}},
         {meaning::helo, {"> sasl_username=<", nullptr}},
         {meaning::user, {"", ends_in_bracket}}},
        {{meaning::protocol, {" sasl_username=<", is_word}},
         {meaning::user, {"", ends_in_bracket}}},
    };
    std::vector<command_form> all;
    for (const command_form &front : fronts) {
        for (const command_form &end : ends) {
            command_form form = front;
            form.insert(form.end(), end.begin(), end.end());
            all.push_back(std::move(form));
        }
    }
    return all;
}

std::string without_bracket(std::string_view text) {
    return std::string(text.substr(0, text.size() - text.ends_with('>')));
}

void take_value(meaning what, std::string_view value, bool is_last, transaction *of) {
    const std::string text = is_last ? without_bracket(value) : std::string(value);
    switch (what) {
    case meaning::stage:
        of->stage = text;
        break;
    case meaning::client:
        take_client(value, of);
        break;
    case meaning::sender:
        of->sender = text;
        break;
    case meaning::recipient:
        of->recipient = text;
        break;
    case meaning::helo:
        of->helo = text;
        break;
    case meaning::user:
        of->authuser = text;
        break;
    default:
        break;
    }
}

input_result read_command(std::string_view text) {
    input_transaction read;
    int readings = 0;
    static const std::vector<command_form> forms = all_command_forms();
    for (const command_form &form : forms) {
        std::vector<log_field> fields;
        for (const command_field &one : form) {
            fields.push_back(one.field);
        }
        std::vector<std::string_view> values;
        const log_readings got = split_log_fields(text, fields, &values);
        readings += got == log_readings::several ? 2 : got == log_readings::one;
        if (got == log_readings::one) {
            read = {};
            for (size_t i = 0; i < form.size(); ++i) {
                take_value(form[i].what, values[i], i + 1 == form.size(), &read.transaction);
            }
        }
    }
    if (readings != 1) {
        return readings ? several_ways()
                        : refused("the line does not tell of a client's command as Postfix does");
    }
    return {std::move(read), {}};
}

// --- other lines of a message ---

// "name[address], sasl_method=..., sasl_username=user"
input_result read_client(std::string_view text) {
    static constexpr std::string_view method = ", sasl_method=";
    static constexpr std::string_view user = ", sasl_username=";
    input_transaction read;
    const std::string_view name = text.substr(0, text.find(','));
    if (!is_client(name)) {
        return refused("client: is not a name with an address in brackets");
    }
    take_client(name, &read.transaction);
    std::string_view rest = text.substr(name.size());
    if (rest.empty()) {
        read.transaction.authuser = "";
    } else if (rest.starts_with(method) && rest.find(user) != std::string_view::npos) {
        rest.remove_prefix(rest.find(user) + user.size());
        if (rest.find(", ") != std::string_view::npos) {
            return several_ways();
        }
        read.transaction.authuser = rest;
    }
    return {std::move(read), {}};
}

// "<a@b>, size=..." behind "from="
input_result read_sender(std::string_view text) {
    static constexpr log_field fields[] = {
        {">, size=", nullptr},
        {", nrcpt=", is_number},
        {"", nullptr},
    };
    std::vector<std::string_view> values;
    const log_readings got = split_log_fields(text, fields, &values);
    if (got != log_readings::one) {
        return got == log_readings::several ? several_ways()
                                            : refused("from: is not as Postfix logs it");
    }
    input_transaction read;
    read.transaction.sender = values[0];
    return {std::move(read), {}};
}

// An address that holds what a log has between addresses is a quoted one.
bool has_no_quote(std::string_view text) {
    return text.find('"') == std::string_view::npos;
}

// "<c@d>, orig_to=<e@f>, relay=..." behind "to=": the client gave the original recipient.
input_result read_recipient(std::string_view text) {
    static constexpr log_field with_original[] = {
        {">, orig_to=<", has_no_quote}, {">, relay=", nullptr}, {"", nullptr}};
    static constexpr log_field without[] = {{">, relay=", nullptr}, {"", nullptr}};
    std::vector<std::string_view> original;
    std::vector<std::string_view> plain;
    const log_readings got = split_log_fields(text, with_original, &original);
    if (got == log_readings::several ||
        split_log_fields(text, without, &plain) == log_readings::several) {
        return several_ways();
    }
    if (plain.empty()) {
        return refused("to: is not as Postfix logs it");
    }
    input_transaction read;
    read.transaction.recipient = got == log_readings::one ? original[1] : plain[0];
    return {std::move(read), {}};
}

// --- the line ---

struct log_line {
    std::string_view moment;
    std::string_view program; // "postfix/smtpd"
    std::string_view id;      // of the queue; "NOQUEUE"
    std::string_view text;
};

std::string_view take_until(std::string_view *text, std::string_view end) {
    const size_t at = text->find(end);
    if (at == std::string_view::npos) {
        return {};
    }
    const std::string_view taken = text->substr(0, at);
    text->remove_prefix(at + end.size());
    return taken;
}

// "Nov 22 04:51:13 host postfix/smtpd[7]: 4F8: text", or with a moment like
// "2026-11-22T04:51:13.123456+00:00".
std::optional<log_line> line_of(std::string_view text) {
    log_line line;
    const std::string_view whole = text;
    const std::string_view front = take_until(&text, "]: ");
    const size_t bracket = front.rfind('[');
    const size_t blank = front.rfind(' ', bracket);
    const size_t host = blank == std::string_view::npos ? blank : front.rfind(' ', blank - 1);
    if (bracket == std::string_view::npos || host == std::string_view::npos || blank == 0 ||
        !is_number(front.substr(bracket + 1))) {
        return std::nullopt;
    }
    line.moment = whole.substr(0, host);
    line.program = front.substr(blank + 1, bracket - blank - 1);
    line.id = take_until(&text, ": ");
    line.text = text;
    const bool good = line.program.starts_with("postfix") && is_word(line.id);
    return good ? std::optional(line) : std::nullopt;
}

// "2026-11-22T04:51:13Z" of a moment in UTC; other moments have no zone, or not that one.
std::string time_of(std::string_view moment) {
    for (const std::string_view zone : {"Z", "+00:00"}) {
        if (moment.size() > 19 && moment[10] == 'T' && moment.ends_with(zone)) {
            return std::string(moment.substr(0, moment.size() - zone.size())) + 'Z';
        }
    }
    return "";
}

input_result read_message(const log_line &line) {
    static constexpr struct {
        std::string_view begin;
        input_result (*read)(std::string_view text);
    } kinds[] = {{"client=", read_client}, {"from=<", read_sender}, {"to=<", read_recipient}};
    for (const auto &kind : kinds) {
        if (line.text.starts_with(kind.begin)) {
            return kind.read(line.text.substr(kind.begin.size()));
        }
    }
    // "reject: ", and what else Postfix does to a command.
    const size_t colon = line.text.find(": ");
    if (colon == std::string_view::npos || !is_word(line.text.substr(0, colon))) {
        return refused("the line tells nothing of a transaction");
    }
    return read_command(line.text.substr(colon + 2));
}

// Users of this server come in by the submission services, or authenticate.
void take_submission(const log_line &line, transaction *of) {
    const bool submission = line.program.find("/submission") != std::string_view::npos ||
                            line.program.find("/smtps") != std::string_view::npos;
    if (submission || (of->authuser && !of->authuser->empty())) {
        of->mua = true;
    }
}

} // namespace

bool is_postfix_line(std::string_view text) {
    return line_of(text).has_value();
}

input_result read_postfix_input(std::string_view unit) {
    const std::optional<log_line> line = line_of(unit);
    if (!line) {
        return refused("the line is not one of Postfix's log");
    }
    input_result result = read_message(*line);
    if (result.read) {
        result.read->id = line->id == "NOQUEUE" ? "" : line->id;
        result.read->time = time_of(line->moment);
        add_extra(&result.read->extra, "logged", line->moment);
        take_submission(*line, &result.read->transaction);
    }
    return result;
}

} // namespace quillfence::decision
