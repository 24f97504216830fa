#include "given_source.h"

#include <cstdlib>
#include <memory>
#include <new>

#include "vc_dns.h"
#include "vc_rfc.h"
#include "words.h"

namespace quillfence::dns_sources {

given_source::given_source(source &next) : next_(next) {}

std::optional<std::string> given_source::add(std::string_view name, std::string_view type,
                                             std::string_view value) {
    const auto number = type_of_word(type);
    if (!number) {
        return std::string(type) + " is no record type";
    }
    if (!is_domain_name(name)) {
        return std::string(name) + " is no domain name";
    }
    std::optional<answer> whole = answer_of_word(value);
    std::optional<record> one;
    std::string complaint;
    if (!whole && !(one = record_of_words(type, value, &complaint))) {
        return complaint;
    }
    const auto place = given_.find({name_key(name), *number});
    if (place == given_.end()) {
        given_.insert({{name_key(name), *number},
                       whole ? std::move(*whole) : answer_of_server(0, {std::move(*one)})});
        return std::nullopt;
    }
    if (whole || place->second.records.empty()) {
        return "there is already an answer for " + std::string(name) + " " + type_word(*number);
    }
    place->second.records.push_back(std::move(*one));
    return std::nullopt;
}

std::optional<std::string> given_source::add_ptr(const std::string &address,
                                                 std::string_view value) {
    if (!vc_is_ip(address.c_str())) {
        return address + " is no address";
    }
    char *name = nullptr;
    const bool made = vc_arpa(&name, address.c_str());
    const std::unique_ptr<char, decltype(&std::free)> owner(name, std::free);
    if (!made) {
        throw std::bad_alloc();
    }
    return add(name, "PTR", value);
}

answer given_source::ask(const question &asked) {
    const auto place = given_.find({name_key(asked.name), asked.type});
    return place == given_.end() ? next_.ask(asked) : place->second;
}

} // namespace quillfence::dns_sources
