// IPv4 addresses and networks as text. Numbers are in host byte order.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillfence::data_files {

// The addresses from first to last, both in it.
struct address_range {
    uint32_t first;
    uint32_t last;
};

struct address_line {
    enum class kind { nothing, range, wrong };
    kind is;
    address_range range = {};
    std::string problem = {}; // what is wrong
};

// Understands one line: an address "a.b.c.d", a network "a.b.c.d/n", a range "a.b.c.d-e.f.g.h";
// "#" or ";" begins a comment, and white space counts nowhere but inside an address.
address_line read_address_line(std::string_view line);

// Exactly four decimal numbers up to 255, without leading zeros; nothing for any other text.
std::optional<uint32_t> parse_address(std::string_view text);

// For the engine, which takes addresses in network byte order.
uint32_t in_network_order(uint32_t address);

// "10.1.2.3", and "10.1.0.0/16"; a network of one address is shown as the address.
std::string address_text(uint32_t address);
std::string network_text(uint32_t address, unsigned prefix);

} // namespace quillfence::data_files
