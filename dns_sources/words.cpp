#include "words.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "platform/net.h"
#include "vc_dns.h"

namespace quillfence::dns_sources {

namespace {

struct code_row {
    uint32_t code;
    const char *word;
};
constexpr code_row response_codes[] = {
    {0, "NOERROR"}, {1, "FORMERR"}, {2, "SERVFAIL"}, {3, "NXDOMAIN"},
    {4, "NOTIMP"},  {5, "REFUSED"}, {6, "YXDOMAIN"}, {7, "YXRRSET"},
    {8, "NXRRSET"}, {9, "NOTAUTH"}, {10, "NOTZONE"},
};
constexpr std::string_view unnamed_code = "RCODE";
constexpr std::string_view unnamed_type = "TYPE";

constexpr uint16_t named_types[] = {platform::dns_type_a,     platform::dns_type_ns,
                                    platform::dns_type_cname, platform::dns_type_ptr,
                                    platform::dns_type_mx,    platform::dns_type_aaaa};

char upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool same_word(std::string_view first, std::string_view second) {
    return std::equal(first.begin(), first.end(), second.begin(), second.end(),
                      [](char a, char b) { return upper(a) == upper(b); });
}

// The whole of a text as a decimal number.
template <class Number>
std::optional<Number> number_of(std::string_view text) {
    Number number{};
    const auto [stopped, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc() || stopped != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

// The number behind a word that stands in front of it.
template <class Number>
std::optional<Number> number_behind(std::string_view front, std::string_view word) {
    if (!same_word(word.substr(0, front.size()), front)) {
        return std::nullopt;
    }
    return number_of<Number>(word.substr(front.size()));
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// How many characters of the text stand for its first byte: 1, 2 ("\.") or 4 ("\032"); 0 for none.
size_t byte_length(std::string_view text) {
    if (text[0] <= ' ' || text[0] > '~') {
        return 0;
    }
    if (text[0] != '\\') {
        return 1;
    }
    if (text.size() >= 4 && is_digit(text[1]) && is_digit(text[2]) && is_digit(text[3])) {
        return number_of<unsigned>(text.substr(1, 3)).value_or(256) < 256 ? 4 : 0;
    }
    return text.size() >= 2 && !is_digit(text[1]) && text[1] > ' ' && text[1] <= '~' ? 2 : 0;
}

std::string with_final_dot(std::string_view name) {
    // A dot behind an odd number of backslashes belongs to the last label.
    size_t slashes = 0;
    while (slashes + 1 < name.size() && name[name.size() - 2 - slashes] == '\\') {
        ++slashes;
    }
    const bool ended = name.ends_with('.') && slashes % 2 == 0;
    return std::string(name) + (ended ? "" : ".");
}

std::optional<std::string> address_text(int family, std::string_view data) {
    unsigned char binary[16];
    char text[64];
    if (!vc_inet_pton(family, std::string(data).c_str(), binary) ||
        !vc_inet_ntop(family, binary, text, sizeof text)) {
        return std::nullopt;
    }
    return text;
}

std::optional<std::string> name_text(std::string_view data) {
    return is_domain_name(data) ? std::optional(with_final_dot(data)) : std::nullopt;
}

std::optional<std::string> exchanger_text(std::string_view data) {
    constexpr uint16_t usual_preference = 10;
    const size_t blank = data.find(' ');
    const auto preference = blank == std::string_view::npos
                                ? usual_preference
                                : number_of<uint16_t>(data.substr(0, blank));
    const auto name = name_text(blank == std::string_view::npos ? data : data.substr(blank + 1));
    if (!preference || !name) {
        return std::nullopt;
    }
    return std::to_string(*preference) + " " + *name;
}

std::optional<std::string> data_text(uint16_t type, std::string_view data) {
    switch (type) {
    case platform::dns_type_a:
        return address_text(platform::family_ipv4, data);
    case platform::dns_type_aaaa:
        return address_text(platform::family_ipv6, data);
    case platform::dns_type_mx:
        return exchanger_text(data);
    default:
        return name_text(data);
    }
}

const char *data_kind(uint16_t type) {
    switch (type) {
    case platform::dns_type_a:
        return "IPv4 address";
    case platform::dns_type_aaaa:
        return "IPv6 address";
    case platform::dns_type_mx:
        return "mail exchanger (\"10 mail.example.org\")";
    default:
        return "domain name";
    }
}

} // namespace

std::string type_word(uint16_t type) {
    char text[platform::dns_type_name_size];
    return platform::dns_type_name(type, text);
}

std::optional<uint16_t> type_of_word(std::string_view word) {
    for (const uint16_t type : named_types) {
        if (same_word(word, type_word(type))) {
            return type;
        }
    }
    return number_behind<uint16_t>(unnamed_type, word);
}

std::string response_code_word(uint32_t code) {
    for (const code_row &row : response_codes) {
        if (row.code == code) {
            return row.word;
        }
    }
    return std::string(unnamed_code) + std::to_string(code);
}

std::optional<uint32_t> response_code_of_word(std::string_view word) {
    for (const code_row &row : response_codes) {
        if (same_word(word, row.word)) {
            return row.code;
        }
    }
    return number_behind<uint32_t>(unnamed_code, word);
}

std::optional<answer> answer_of_word(std::string_view word) {
    if (same_word(word, "TIMEOUT")) {
        return answer_of_status(platform::dns_status_timeout);
    }
    if (same_word(word, "NODATA")) {
        return answer_of_server(0, {});
    }
    for (const char *const code : {"NXDOMAIN", "SERVFAIL", "REFUSED"}) {
        if (same_word(word, code)) {
            return answer_of_server(*response_code_of_word(code), {});
        }
    }
    return std::nullopt;
}

bool is_domain_name(std::string_view name) {
    constexpr size_t max_label = 63;
    constexpr size_t max_name = 255;
    if (name == ".") {
        return true;
    }
    size_t label = 0;
    size_t all = 1; // the root's length byte
    while (!name.empty()) {
        const size_t length = byte_length(name);
        const bool dot = name[0] == '.';
        if (length == 0 || (dot ? label == 0 : label == max_label)) {
            return false;
        }
        label = dot ? 0 : label + 1;
        all += dot ? 0 : 1 + (label == 1); // its length byte
        name.remove_prefix(length);
    }
    return all > 1 && all <= max_name;
}

std::optional<record> record_of_words(std::string_view type, std::string_view data,
                                      std::string *complaint) {
    const auto number = type_of_word(type);
    const bool named = number && std::find(std::begin(named_types), std::end(named_types),
                                           *number) != std::end(named_types);
    if (!named) {
        *complaint = std::string(type) + " is not one of A, AAAA, CNAME, MX, NS and PTR";
        return std::nullopt;
    }
    const auto text = data_text(*number, data);
    if (!text) {
        *complaint = std::string(data) + " is no " + data_kind(*number);
        return std::nullopt;
    }
    return record{*number, type_word(*number) + " " + *text};
}

} // namespace quillfence::dns_sources
