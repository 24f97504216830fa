#include "address_text.h"

#include <charconv>
#include <cstring>

namespace quillfence::data_files {

namespace {

using kind = address_line::kind;

constexpr std::string_view white_space = " \t\v\f\r";

std::string_view trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(white_space);
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(white_space) - begin + 1);
}

// A decimal number up to `maximum`, without sign and leading zeros.
std::optional<uint32_t> parse_number(std::string_view text, uint32_t maximum) {
    uint32_t number = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    const bool leading_zero = text.size() > 1 && text.front() == '0';
    if (error != std::errc() || stop != end || leading_zero || number > maximum) {
        return {};
    }
    return number;
}

address_line wrong(std::string problem) {
    return {kind::wrong, {}, std::move(problem)};
}

address_line wrong_address(std::string_view text) {
    return wrong("\"" + std::string(text) +
                 "\" is no IPv4 address; write four numbers from 0 to 255, as in 192.0.2.1");
}

uint32_t host_bits(unsigned prefix) {
    return prefix == 0 ? 0xFFFFFFFF : (uint32_t{1} << (32 - prefix)) - 1;
}

address_line network_line(std::string_view address, std::string_view length) {
    const auto base = parse_address(address);
    if (!base) {
        return wrong_address(address);
    }
    const auto prefix = parse_number(length, 32);
    if (!prefix) {
        return wrong("\"/" + std::string(length) +
                     "\" is no prefix length; write a number from 0 to 32");
    }
    const uint32_t rest = host_bits(*prefix);
    if (*base & rest) {
        return wrong(std::string(address) + "/" + std::string(length) +
                     " has bits behind its prefix; write " + network_text(*base & ~rest, *prefix) +
                     " for the network, or " + address_text(*base) + " for the address");
    }
    return {kind::range, {*base, *base | rest}};
}

address_line range_line(std::string_view from, std::string_view to) {
    const auto first = parse_address(from);
    const auto last = parse_address(to);
    if (!first || !last) {
        return wrong_address(first ? to : from);
    }
    if (*first > *last) {
        return wrong("the range ends before it begins; write " + std::string(to) + "-" +
                     std::string(from));
    }
    return {kind::range, {*first, *last}};
}

} // namespace

std::optional<uint32_t> parse_address(std::string_view text) {
    uint32_t address = 0;
    for (int octet = 0; octet < 4; ++octet) {
        const size_t dot = octet < 3 ? text.find('.') : text.size();
        if (dot == std::string_view::npos) {
            return {};
        }
        const auto number = parse_number(text.substr(0, dot), 255);
        if (!number) {
            return {};
        }
        address = address << 8 | *number;
        text.remove_prefix(octet < 3 ? dot + 1 : dot);
    }
    return address;
}

address_line read_address_line(std::string_view line) {
    const std::string_view text = trimmed(line.substr(0, line.find_first_of("#;")));
    if (text.empty()) {
        return {kind::nothing};
    }
    if (const size_t slash = text.find('/'); slash != std::string_view::npos) {
        return network_line(trimmed(text.substr(0, slash)), trimmed(text.substr(slash + 1)));
    }
    if (const size_t dash = text.find('-'); dash != std::string_view::npos) {
        return range_line(trimmed(text.substr(0, dash)), trimmed(text.substr(dash + 1)));
    }
    const auto address = parse_address(text);
    return address ? address_line{kind::range, {*address, *address}} : wrong_address(text);
}

uint32_t in_network_order(uint32_t address) {
    uint8_t bytes[4];
    for (int i = 0; i < 4; ++i) {
        bytes[i] = static_cast<uint8_t>(address >> (24 - 8 * i));
    }
    uint32_t ordered = 0;
    std::memcpy(&ordered, bytes, sizeof bytes);
    return ordered;
}

std::string address_text(uint32_t address) {
    return std::to_string(address >> 24) + "." + std::to_string(address >> 16 & 255) + "." +
           std::to_string(address >> 8 & 255) + "." + std::to_string(address & 255);
}

std::string network_text(uint32_t address, unsigned prefix) {
    return address_text(address) + (prefix == 32 ? "" : "/" + std::to_string(prefix));
}

} // namespace quillfence::data_files
