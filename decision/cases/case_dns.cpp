#include "case_dns.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "vc_dns.h"
#include "words.h"

namespace quillfence::decision {

// --- by hand ---

std::string in_capitals(std::string_view word) {
    std::string made(word);
    for (char &c : made) {
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    }
    return made;
}

bool is_never_asked(std::string_view type) {
    const std::string word = in_capitals(type);
    return word == "TXT" || word == "SPF";
}

std::optional<std::string> add_zone_entry(dns_sources::zone_source &zone, std::string_view name,
                                          const zone_entry &entry) {
    if (entry.type.empty()) {
        return zone.add_word(name, entry.data);
    }
    if (is_never_asked(entry.type)) {
        return zone.add_name(name);
    }
    return zone.add_record(name, entry.type, entry.data);
}

std::optional<std::string> add_zone_data(dns_sources::zone_source &zone,
                                         const std::vector<zone_name> &data) {
    for (const zone_name &one : data) {
        if (const auto why = zone.add_name(one.name)) {
            return "zonedata." + one.name + ": " + *why;
        }
        for (size_t i = 0; i < one.entries.size(); ++i) {
            if (const auto why = add_zone_entry(zone, one.name, one.entries[i])) {
                return "zonedata." + one.name + '[' + std::to_string(i) + "]: " + *why;
            }
        }
    }
    return std::nullopt;
}

// --- recorded ---

using dns_sources::answer;
using platform::dns_transport;

static std::string unknown(const char *what, const std::string &word) {
    return std::string("the ") + what + " \"" + word + "\" is not known";
}

static std::optional<dns_transport> transport_of_word(std::string_view word) {
    static constexpr std::pair<std::string_view, dns_transport> words[] = {
        {"", dns_transport::unknown}, {"udp", dns_transport::udp}, {"tcp", dns_transport::tcp}};
    for (const auto &[known, transport] : words) {
        if (known == word) {
            return transport;
        }
    }
    return std::nullopt;
}

static int code_of(answer_class is) {
    return is == answer_class::found     ? vc_dns_found
           : is == answer_class::no_name ? vc_dns_no_name
                                         : vc_dns_failed;
}

// Whether the answer is missing because the time for all questions was used up.
static bool is_cut_off(const dns_record &given) {
    return given.is == answer_class::missing && (given.status == dns_sources::status_deadline ||
                                                 given.status == platform::dns_status_timeout);
}

// The status for the engine. What the server said is another one where a guard read it as a
// failure.
static std::optional<uint32_t> engine_status(const dns_record &given) {
    if (is_cut_off(given)) {
        return dns_sources::status_deadline;
    }
    if (vc_dns_code(given.status) == code_of(given.is)) {
        return given.status;
    }
    if (given.is != answer_class::failure) {
        return std::nullopt;
    }
    return given.records.empty() ? dns_sources::status_refusal : dns_sources::status_no_listing;
}

static std::optional<std::string> add_words(answer *made, const dns_record &given) {
    const auto transport = transport_of_word(given.transport);
    if (!transport) {
        return unknown("transport", given.transport);
    }
    made->transport = *transport;
    if (!given.rcode.empty()) {
        made->response_code = dns_sources::response_code_of_word(given.rcode);
        if (!made->response_code) {
            return unknown("response code", given.rcode);
        }
    }
    for (const std::string &text : given.records) {
        const std::string word = text.substr(0, text.find(' '));
        const auto type = dns_sources::type_of_word(word);
        if (!type) {
            return unknown("record type", word);
        }
        made->records.push_back({*type, text});
    }
    return std::nullopt;
}

static std::optional<std::string> make_answer(answer *made, const dns_record &given) {
    const auto status = engine_status(given);
    if (!status) {
        return "class and status do not say the same";
    }
    made->status = *status;
    made->said = given.status;
    made->server = given.server;
    made->tries = given.tries.value_or(0);
    if (given.ms) {
        made->microseconds = std::llround(*given.ms * 1000.0);
    }
    return add_words(made, given);
}

std::optional<std::string> add_answer(dns_sources::recorded_source &recorded,
                                      const dns_record &given) {
    const auto type = dns_sources::type_of_word(given.type);
    if (!type) {
        return unknown("type", given.type);
    }
    if (given.is == answer_class::missing && !is_cut_off(given)) {
        return std::nullopt;
    }
    answer made;
    const auto why = make_answer(&made, given);
    if (!why) {
        recorded.add(given.name, *type, std::move(made));
    }
    return why;
}

std::optional<std::string> add_answers(dns_sources::recorded_source &recorded,
                                       const std::vector<dns_record> &answers) {
    for (size_t i = 0; i < answers.size(); ++i) {
        if (const auto why = add_answer(recorded, answers[i])) {
            return "dns[" + std::to_string(i) + "]: " + *why;
        }
    }
    return std::nullopt;
}

} // namespace quillfence::decision
