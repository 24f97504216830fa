// Which records of a log somebody wants to see.
//
// A record passes when it passes every member of the filter that is not empty; of several values of
// one member any will do. Letter case of addresses and domains does not count (ASCII).
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "log_record.h"

namespace quillfence::decision {

// Addresses that begin with the same bits.
struct client_network {
    int family = 0; // as in platform/net.h
    std::array<unsigned char, 16> bits{};
    unsigned prefix = 0;
    bool operator==(const client_network &) const = default;
};
// "192.0.2.9", "192.0.2.0/24", "2001:db8::/32"; nothing for any other text. Bits behind the prefix
// don't count.
std::optional<client_network> read_client_network(std::string_view text);

struct log_filter {
    std::vector<client_network> clients;
    std::vector<std::string> senders;    // an address, "@domain", or "<>" for the empty sender
    std::vector<std::string> recipients; // likewise
    std::vector<std::string> domains;    // of sender or recipient: this one, and all below it
    std::vector<std::string> rules;      // the one that decided
    std::vector<verdict> verdicts;
    std::vector<decided_by> by;
    std::vector<log_answer> answers;
    std::vector<std::string> ids; // or without the number that tells a message's recipients apart
    std::optional<int64_t> since; // milliseconds since 1970 UTC
    std::optional<int64_t> until; // not it itself. Without a time a record passes neither
};

bool passes(const log_filter &filter, const log_record &record);

// A quick look at lines for what a record must hold to pass. Text with escapes is always looked
// into, as are texts in hexadecimal: there are several ways to write them.
class line_sieve {
  public:
    explicit line_sieve(const log_filter &filter);
    // False: it is no record that passes.
    bool may_pass(std::string_view line) const;

  private:
    // Horspool's search, without regard to the case of ASCII letters.
    struct literal {
        explicit literal(std::string_view text);
        bool is_in(std::string_view line) const;
        std::string lower;
        std::array<size_t, 256> skip;
    };
    void add(const std::string &text);
    std::vector<literal> wanted_;     // all of them, the longest first
    const literal bytes_{"_bytes\""}; // of a text that stands in another member in hexadecimal
};

} // namespace quillfence::decision
