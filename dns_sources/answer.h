// A DNS question and what is known of its answer, as the sources pass them on.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/dns.h"

namespace quillfence::dns_sources {

// Statuses beside those of platform/dns.h, for what no DNS server ever said. They have bit 29 set,
// as no status of the system has, and the engine takes each of them for a failure.
inline constexpr uint32_t status_missing = 0x20000001;    // nobody knows the answer: not asked
inline constexpr uint32_t status_deadline = 0x20000002;   // the time was used up: not asked
inline constexpr uint32_t status_no_listing = 0x20000003; // a block list's answer that lists nobody
inline constexpr uint32_t status_refusal = 0x20000004;    // REFUSED, read as a failure

struct question {
    std::string name; // as the engine asks it, mostly with a final dot
    uint16_t type = platform::dns_type_a;
    uint32_t options = platform::dns_query_standard;
    std::optional<std::chrono::milliseconds> limit; // for the whole question; none: the seam's own

    bool operator==(const question &) const = default;
};

// A record of the answer section, in the form that platform::dns_details describes: the type's
// name, a blank and the data, names with their final dot.
struct record {
    uint16_t type = 0;
    std::string text;

    bool operator==(const record &) const = default;
};

struct answer {
    uint32_t status = 0;                     // for the engine
    uint32_t said = 0;                       // by the server; differs where a guard stepped in
    std::optional<uint32_t> response_code{}; // of the server's message
    std::vector<record> records{};           // next to an error, too
    uint32_t left_out = 0;                   // further records of which nothing is known
    std::string server{};                    // "" and so on where it is not known
    platform::dns_transport transport = platform::dns_transport::unknown;
    uint32_t tries = 0;
    std::optional<int64_t> microseconds{};
    std::string missing_name{}; // with status_missing: what to look for, when not the name itself

    bool operator==(const answer &) const = default;
};

// An answer of which the status is all there is.
answer answer_of_status(uint32_t status);
// An answer as a server gives it: its response code, and the status that follows from it and from
// whether there are records.
answer answer_of_server(uint32_t response_code, std::vector<record> records);

// The same for names that ask the same: lower case (ASCII), without the final dot.
std::string name_key(std::string_view name);

} // namespace quillfence::dns_sources
