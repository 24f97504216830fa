// A line of the engine's own mail log:
//
//   2026-11-22 04:51:13 quillfence[7]: SPAM[rule]: mua=[no:(null)],ip=[192.0.2.1:name],port=<25>,
//   tls=<no>,helo=<h>,from=<a@b>,rcpt=<c@d>
//
// in local time, so that there is no time of the transaction. "(null)" is what the log writes for
// an absent text, and what a client may have said: the fact is not known. The user is logged of
// submissions alone.
#include "input_formats.h"
#include "log_fields.h"

namespace quillfence::decision {

namespace {

bool is_yes_or_no(std::string_view text) {
    return text == "yes" || text == "no";
}

bool is_port(std::string_view text) {
    return text == "(unknown)" || text.empty() || (is_number(text) && text.size() <= 5);
}

bool is_verdict(std::string_view text) {
    static constexpr std::string_view names[] = {"HAM",       "SPAM", "EXEMPT",
                                                 "RATELIMIT", "NDR",  "QUARANTINE"};
    for (const std::string_view name : names) {
        const bool named =
            text.size() > name.size() && text[name.size()] == '[' && text.ends_with(']');
        if (text.starts_with(name) && (text.size() == name.size() || named)) {
            return true;
        }
    }
    return false;
}

bool has_no_blank(std::string_view text) {
    return text.find(' ') == std::string_view::npos;
}

enum : size_t {
    f_moment,
    f_program,
    f_thread,
    f_verdict,
    f_mua,
    f_user,
    f_ip,
    f_name,
    f_port,
    f_tls,
    f_helo,
    f_from,
    f_rcpt,
};

// Behind the moment and its blank.
constexpr log_field fields[] = {
    {"[", has_no_blank},        {"]: ", is_number},
    {": mua=[", is_verdict},    {":", is_yes_or_no},
    {"],ip=[", nullptr},        {":", is_address},
    {"],port=<", nullptr},      {">,tls=<", is_port},
    {">,helo=<", is_yes_or_no}, {">,from=<", nullptr},
    {">,rcpt=<", nullptr},      {"", [](std::string_view last) { return last.ends_with('>'); }},
};

std::optional<std::string> known(std::string_view text) {
    return text == "(null)" ? std::nullopt : std::optional(std::string(text));
}

// "SPAM[rule]"
void take_verdict(std::string_view text, std::vector<extra_member> *extra) {
    const size_t bracket = text.find('[');
    add_extra(extra, "logged_verdict", text.substr(0, bracket));
    if (bracket != std::string_view::npos) {
        add_extra(extra, "logged_rule", text.substr(bracket + 1, text.size() - bracket - 2));
    }
}

input_transaction transaction_of(std::span<const std::string_view> v) {
    // What the engine makes of an empty sender.
    static constexpr std::string_view bounce_sender = "bounce message";
    input_transaction read;
    transaction &of = read.transaction;
    of.mua = v[f_mua] == "yes";
    of.authuser = *of.mua ? known(v[f_user]) : std::nullopt;
    of.ip = v[f_ip];
    if (is_number(v[f_port])) {
        of.port = v[f_port];
    }
    of.tls = v[f_tls] == "yes";
    of.helo = known(v[f_helo]);
    of.sender = v[f_from] == bounce_sender ? std::string() : known(v[f_from]);
    of.recipient = known(v[f_rcpt].substr(0, v[f_rcpt].size() - 1));
    add_extra(&read.extra, "logged", v[f_moment]);
    take_verdict(v[f_verdict], &read.extra);
    return read;
}

} // namespace

input_result read_qflog_input(std::string_view unit) {
    const std::string_view moment = unit.substr(0, log_moment_size);
    if (!is_log_moment(moment) || unit.size() <= log_moment_size || unit[log_moment_size] != ' ') {
        return refused("the line does not begin with a date and a time");
    }
    std::vector<std::string_view> values;
    switch (split_log_fields(unit.substr(log_moment_size + 1), fields, &values)) {
    case log_readings::none:
        return refused("the line is not one of the engine's mail log");
    case log_readings::several:
        return several_ways();
    case log_readings::one:
        break;
    }
    values.insert(values.begin(), moment);
    return {transaction_of(values), {}};
}

} // namespace quillfence::decision
