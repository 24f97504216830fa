#include "case_dns.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "vc_dns.h"
#include "words.h"

namespace quillfence::decision {

// --- by hand ---

// Types that stand in the data of test suites for other programs.
static bool is_never_asked(std::string_view type) {
    return type == "TXT" || type == "SPF";
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
        for (size_t i = 0; i < one.entries.size(); ++i) {
            if (const auto why = add_zone_entry(zone, one.name, one.entries[i])) {
                return "zonedata." + one.name + '[' + std::to_string(i) + "]: " + *why;
            }
        }
    }
    return std::nullopt;
}

// --- recorded ---

namespace {

using dns_sources::answer;
using platform::dns_transport;

// What is said about the element of "dns" when a word in it is not known.
std::string unknown(size_t index, const char *member, const std::string &word) {
    return "dns[" + std::to_string(index) + "]." + member + ": \"" + word + "\" is not known";
}

std::optional<dns_transport> transport_of_word(std::string_view word) {
    constexpr std::pair<std::string_view, dns_transport> words[] = {
        {"", dns_transport::unknown}, {"udp", dns_transport::udp}, {"tcp", dns_transport::tcp}};
    for (const auto &[known, transport] : words) {
        if (known == word) {
            return transport;
        }
    }
    return std::nullopt;
}

} // namespace

// The status for the engine; one that says something else than the record's class was read as a
// failure by a guard.
static uint32_t engine_status(const dns_record &given) {
    if (given.is != answer_class::failure || vc_dns_code(given.status) == vc_dns_failed) {
        return given.status;
    }
    return given.records.empty() ? dns_sources::status_refusal : dns_sources::status_no_listing;
}

static std::optional<std::string> add_records(answer *made, size_t index, const dns_record &given) {
    for (size_t i = 0; i < given.records.size(); ++i) {
        const std::string &text = given.records[i];
        const std::string word = text.substr(0, text.find(' '));
        const auto type = dns_sources::type_of_word(word);
        if (!type) {
            return unknown(index, ("records[" + std::to_string(i) + ']').c_str(), word);
        }
        made->records.push_back({*type, text});
    }
    return std::nullopt;
}

static std::optional<std::string> make_answer(answer *made, size_t index, const dns_record &given) {
    made->status = engine_status(given);
    made->said = given.status;
    made->server = given.server;
    made->tries = given.tries.value_or(0);
    if (given.ms) {
        made->microseconds = std::llround(*given.ms * 1000.0);
    }
    const auto transport = transport_of_word(given.transport);
    if (!transport) {
        return unknown(index, "transport", given.transport);
    }
    made->transport = *transport;
    if (!given.rcode.empty()) {
        made->response_code = dns_sources::response_code_of_word(given.rcode);
        if (!made->response_code) {
            return unknown(index, "rcode", given.rcode);
        }
    }
    return add_records(made, index, given);
}

std::optional<std::string> add_answers(dns_sources::recorded_source &recorded,
                                       const std::vector<dns_record> &answers) {
    for (size_t i = 0; i < answers.size(); ++i) {
        if (answers[i].is == answer_class::missing) {
            continue;
        }
        const auto type = dns_sources::type_of_word(answers[i].type);
        if (!type) {
            return unknown(i, "type", answers[i].type);
        }
        answer made;
        if (const auto why = make_answer(&made, i, answers[i])) {
            return why;
        }
        recorded.add(answers[i].name, *type, std::move(made));
    }
    return std::nullopt;
}

} // namespace quillfence::decision
