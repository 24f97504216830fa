// The bytes of range files, put together by hand.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>

namespace quillfence::testing {

using ipv4 = std::array<int, 4>;

inline std::string bytes_of(const ipv4 &address) {
    std::string bytes;
    for (const int octet : address) {
        bytes += static_cast<char>(octet);
    }
    return bytes;
}

// In network byte order.
inline uint32_t address(const ipv4 &octets) {
    uint32_t value = 0;
    std::memcpy(&value, bytes_of(octets).data(), 4);
    return value;
}

inline std::string text(const ipv4 &octets) {
    return std::to_string(octets[0]) + "." + std::to_string(octets[1]) + "." +
           std::to_string(octets[2]) + "." + std::to_string(octets[3]);
}

inline std::string little_endian(uint32_t value) {
    std::string bytes;
    for (int i = 0; i < 4; ++i) {
        bytes += static_cast<char>(value >> 8 * i & 255);
    }
    return bytes;
}

inline std::string header(uint32_t version, uint32_t count) {
    return "\xEA\xD3\x37\xA9\x80\x6C\xD7\x66" + little_endian(version) + little_endian(count);
}

inline std::string legacy_record(const ipv4 &low, const ipv4 &high) {
    return bytes_of(low) + bytes_of(high);
}

inline std::string record(const ipv4 &low, const ipv4 &high, const std::string &comment = "") {
    std::string bytes = legacy_record(low, high) + comment;
    bytes.resize(264);
    return bytes;
}

} // namespace quillfence::testing
