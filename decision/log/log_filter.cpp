#include "log_filter.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "platform/net.h"
#include "record_words.h"
#include "vc_text.h"

namespace quillfence::decision {

// --- addresses ----------------------------------------------------------------------------------

static unsigned bits_of_family(int family) {
    return family == platform::family_ipv4 ? 32 : 128;
}

static std::optional<client_network> read_address(const std::string &text) {
    int error = 0;
    client_network made;
    made.family =
        text.find(':') == std::string::npos ? platform::family_ipv4 : platform::family_ipv6;
    made.prefix = bits_of_family(made.family);
    const bool good = platform::net_prepare_pton(&error) == platform::net_status::ok &&
                      platform::net_pton(made.family, text.c_str(), made.bits.data());
    return good ? std::optional(made) : std::nullopt;
}

std::optional<client_network> read_client_network(std::string_view text) {
    const size_t slash = text.find('/');
    auto made = read_address(std::string(text.substr(0, slash)));
    if (!made || slash == std::string_view::npos) {
        return made;
    }
    const std::string_view number = text.substr(slash + 1);
    const char *const end = number.data() + number.size();
    const auto [stop, error] = std::from_chars(number.data(), end, made->prefix);
    const bool good =
        error == std::errc() && stop == end && made->prefix <= bits_of_family(made->family);
    return good ? made : std::nullopt;
}

static bool is_in(const client_network &network, const client_network &address) {
    if (network.family != address.family) {
        return false;
    }
    const size_t whole = network.prefix / 8;
    const unsigned mask = 0xFF00u >> network.prefix % 8 & 0xFF;
    return std::equal(network.bits.begin(), network.bits.begin() + static_cast<ptrdiff_t>(whole),
                      address.bits.begin()) &&
           (mask == 0 || ((network.bits[whole] ^ address.bits[whole]) & mask) == 0);
}

static bool is_client(const std::vector<client_network> &wanted, const transaction &of) {
    const auto address = of.ip ? read_address(*of.ip) : std::nullopt;
    return address && std::any_of(wanted.begin(), wanted.end(),
                                  [&](const client_network &one) { return is_in(one, *address); });
}

// --- texts --------------------------------------------------------------------------------------

static bool is_same(std::string_view one, std::string_view other) {
    return one.size() == other.size() &&
           std::equal(one.begin(), one.end(), other.begin(),
                      [](char a, char b) { return to_lower(a) == to_lower(b); });
}

static std::string_view domain_of(std::string_view address) {
    const size_t at = address.rfind('@');
    return at == std::string_view::npos ? std::string_view() : address.substr(at + 1);
}

static bool is_address(const std::string &wanted, const std::optional<std::string> &address) {
    if (!address) {
        return false;
    }
    if (wanted == "<>") {
        return address->empty();
    }
    return wanted.starts_with('@') ? is_same(domain_of(*address), wanted.substr(1)) &&
                                         address->find('@') != std::string::npos
                                   : is_same(*address, wanted);
}

static bool is_below(std::string_view domain, std::string_view wanted) {
    if (domain.size() > wanted.size()) {
        const size_t front = domain.size() - wanted.size();
        return domain[front - 1] == '.' && is_same(domain.substr(front), wanted);
    }
    return is_same(domain, wanted);
}

static bool has_domain(const std::string &wanted, const transaction &of) {
    return (of.sender && is_below(domain_of(*of.sender), wanted)) ||
           (of.recipient && is_below(domain_of(*of.recipient), wanted));
}

// "3f2a.7" is of the message "3f2a".
static bool is_id(const std::string &wanted, const std::string &id) {
    if (!id.starts_with(wanted)) {
        return false;
    }
    const std::string_view rest = std::string_view(id).substr(wanted.size());
    return rest.empty() || (rest.size() > 1 && rest.front() == '.' &&
                            rest.find_first_not_of("0123456789", 1) == std::string_view::npos);
}

// --- the filter ---------------------------------------------------------------------------------

template <class Value, class Matches>
static bool any_of(const std::vector<Value> &wanted, Matches matches) {
    return wanted.empty() || std::any_of(wanted.begin(), wanted.end(), matches);
}

template <class Value>
static bool holds(const std::vector<Value> &wanted, const Value &value) {
    return wanted.empty() || std::find(wanted.begin(), wanted.end(), value) != wanted.end();
}

static bool is_in_time(const log_filter &filter, std::optional<int64_t> at) {
    if (!filter.since && !filter.until) {
        return true;
    }
    return at && (!filter.since || *at >= *filter.since) && (!filter.until || *at < *filter.until);
}

bool passes(const log_filter &filter, const log_record &record) {
    const transaction &of = record.transaction;
    return is_in_time(filter, record.at) && holds(filter.verdicts, record.decision.is) &&
           holds(filter.by, record.decision.by) && holds(filter.rules, record.decision.rule) &&
           holds(filter.answers, answer_of_text(record.answered)) &&
           any_of(filter.ids, [&](const std::string &one) { return is_id(one, record.id); }) &&
           any_of(filter.senders,
                  [&](const std::string &one) { return is_address(one, of.sender); }) &&
           any_of(filter.recipients,
                  [&](const std::string &one) { return is_address(one, of.recipient); }) &&
           any_of(filter.domains, [&](const std::string &one) { return has_domain(one, of); }) &&
           (filter.clients.empty() || is_client(filter.clients, of));
}

// --- the sieve ----------------------------------------------------------------------------------

static size_t place(char c) {
    return static_cast<unsigned char>(c);
}

line_sieve::literal::literal(std::string_view text) : lower(text) {
    std::transform(lower.begin(), lower.end(), lower.begin(), to_lower);
    skip.fill(lower.size());
    for (size_t i = 0; i + 1 < lower.size(); ++i) {
        skip[place(lower[i])] = skip[place(to_upper(lower[i]))] = lower.size() - 1 - i;
    }
}

bool line_sieve::literal::is_in(std::string_view line) const {
    const size_t last = lower.size() - 1;
    for (size_t at = last; at < line.size(); at += skip[place(line[at])]) {
        if (to_lower(line[at]) == lower[last] && is_same(line.substr(at - last, last + 1), lower)) {
            return true;
        }
    }
    return false;
}

// Text that stands in a line in one way alone, where there is no escape.
void line_sieve::add(const std::string &text) {
    if (text.size() < 2) {
        return;
    }
    const bool plain =
        std::all_of(text.begin(), text.end(), [](char c) { return is_printable(c) && c != '\\'; });
    if (plain && text.find('"', 1) >= text.size() - 1) {
        wanted_.emplace_back(text);
    }
}

// The address without what is behind its whole bytes: "192.0.2." of 192.0.2.0/25. An IPv6 address
// has many spellings.
static std::string text_of(const client_network &network) {
    if (network.family != platform::family_ipv4) {
        return "";
    }
    std::string text;
    for (size_t i = 0; i < network.prefix / 8; ++i) {
        text += std::to_string(network.bits[i]) + (i < 3 ? "." : "");
    }
    return network.prefix == 32 ? '"' + text + '"' : '"' + text;
}

static std::string text_of_address(const std::string &wanted) {
    return wanted == "<>" ? "" : wanted.starts_with('@') ? wanted + '"' : '"' + wanted + '"';
}

// What a member of one value must be found by; of several each line would be searched as often.
line_sieve::line_sieve(const log_filter &filter) {
    const auto alone = [this](const auto &values, auto text) {
        if (values.size() == 1) {
            add(text(values.front()));
        }
    };
    const auto quoted = [](std::string_view text) { return '"' + std::string(text) + '"'; };
    alone(filter.clients, text_of);
    alone(filter.senders, text_of_address);
    alone(filter.recipients, text_of_address);
    alone(filter.domains, [](const std::string &one) { return one + '"'; });
    alone(filter.rules, quoted);
    alone(filter.ids, [](const std::string &one) { return '"' + one; });
    alone(filter.verdicts, [&](verdict one) { return quoted(word(one)); });
    alone(filter.by, [&](decided_by one) { return quoted(word(one)); });
    std::stable_sort(wanted_.begin(), wanted_.end(), [](const literal &one, const literal &other) {
        return one.lower.size() > other.lower.size();
    });
}

bool line_sieve::may_pass(std::string_view line) const {
    return std::all_of(wanted_.begin(), wanted_.end(),
                       [&](const literal &one) { return one.is_in(line); }) ||
           std::memchr(line.data(), '\\', line.size()) != nullptr || bytes_.is_in(line);
}

} // namespace quillfence::decision
