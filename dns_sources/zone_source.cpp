#include "zone_source.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "words.h"

namespace quillfence::dns_sources {

namespace {

constexpr uint32_t code_servfail = 2;
constexpr int most_aliases = 16;

bool denies_the_name(const answer &word) {
    return word.status == platform::dns_status_nxdomain;
}

std::vector<record> of_type(const std::vector<record> &records, uint16_t type) {
    std::vector<record> wanted;
    std::copy_if(records.begin(), records.end(), std::back_inserter(wanted),
                 [type](const record &one) { return one.type == type; });
    return wanted;
}

std::string alias_target(const record &alias) {
    return alias.text.substr(alias.text.find(' ') + 1);
}

answer missing(std::vector<record> aliases, std::string name) {
    answer made = answer_of_status(status_missing);
    made.records = std::move(aliases);
    made.missing_name = std::move(name);
    return made;
}

} // namespace

std::optional<std::string> zone_source::add_record(std::string_view name, std::string_view type,
                                                   std::string_view data) {
    if (!is_domain_name(name)) {
        return std::string(name) + " is no domain name";
    }
    std::string complaint;
    auto one = record_of_words(type, data, &complaint);
    if (!one) {
        return complaint;
    }
    entry &place = names_[name_key(name)];
    if (place.otherwise && denies_the_name(*place.otherwise)) {
        return std::string(name) + " has records and is NXDOMAIN";
    }
    place.records.push_back(std::move(*one));
    return std::nullopt;
}

std::optional<std::string> zone_source::add_name(std::string_view name) {
    if (!is_domain_name(name)) {
        return std::string(name) + " is no domain name";
    }
    names_.try_emplace(name_key(name));
    return std::nullopt;
}

std::optional<std::string> zone_source::add_word(std::string_view name, std::string_view word) {
    if (!is_domain_name(name)) {
        return std::string(name) + " is no domain name";
    }
    auto whole = answer_of_word(word);
    if (!whole) {
        return std::string(word) + " is not one of NODATA, NXDOMAIN, REFUSED, SERVFAIL and TIMEOUT";
    }
    entry &place = names_[name_key(name)];
    if (place.otherwise) {
        return std::string(name) + " has two such words";
    }
    if (denies_the_name(*whole) && !place.records.empty()) {
        return std::string(name) + " has records and is NXDOMAIN";
    }
    place.otherwise = std::move(whole);
    return std::nullopt;
}

answer zone_source::ask(const question &asked) {
    std::vector<record> found; // aliases first, as in a server's answer
    std::string name = asked.name;
    for (int hop = 0; hop <= most_aliases; ++hop) {
        const auto place = names_.find(name_key(name));
        if (place == names_.end()) {
            return missing(std::move(found), hop ? name : "");
        }
        const auto own = of_type(place->second.records, asked.type);
        found.insert(found.end(), own.begin(), own.end());
        const auto aliases = of_type(place->second.records, platform::dns_type_cname);
        if (own.empty() && !aliases.empty()) {
            found.push_back(aliases.front());
            name = alias_target(aliases.front());
            continue;
        }
        if (own.empty() && place->second.otherwise) {
            answer word = *place->second.otherwise;
            // A server's word comes with the aliases; nothing comes with silence.
            return word.response_code ? answer_of_server(*word.response_code, std::move(found))
                                      : word;
        }
        return answer_of_server(0, std::move(found));
    }
    return answer_of_server(code_servfail, std::move(found));
}

} // namespace quillfence::dns_sources
