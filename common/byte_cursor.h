// Reading and writing little-endian integers in bytes that come from outside or go there.
//
// A reader keeps buffer, size, offset and one error flag: once something did not fit, every later
// read gives zeros, so that a header is read straight down and judged once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace quillfence {

inline uint16_t load_le16(const void *bytes) {
    const auto *b = static_cast<const unsigned char *>(bytes);
    return static_cast<uint16_t>(b[0] | b[1] << 8);
}
inline uint32_t load_le32(const void *bytes) {
    const auto *b = static_cast<const unsigned char *>(bytes);
    return static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 |
           static_cast<uint32_t>(b[2]) << 16 | static_cast<uint32_t>(b[3]) << 24;
}
inline uint64_t load_le64(const void *bytes) {
    const auto *b = static_cast<const unsigned char *>(bytes);
    return load_le32(b) | static_cast<uint64_t>(load_le32(b + 4)) << 32;
}
inline void store_le16(void *bytes, uint16_t value) {
    auto *b = static_cast<unsigned char *>(bytes);
    b[0] = static_cast<unsigned char>(value);
    b[1] = static_cast<unsigned char>(value >> 8);
}
inline void store_le32(void *bytes, uint32_t value) {
    auto *b = static_cast<unsigned char *>(bytes);
    store_le16(b, static_cast<uint16_t>(value));
    store_le16(b + 2, static_cast<uint16_t>(value >> 16));
}
inline void store_le64(void *bytes, uint64_t value) {
    auto *b = static_cast<unsigned char *>(bytes);
    store_le32(b, static_cast<uint32_t>(value));
    store_le32(b + 4, static_cast<uint32_t>(value >> 32));
}

struct byte_reader {
    const unsigned char *bytes;
    size_t size;
    size_t offset = 0; // never above size
    bool failed = false;
};

inline byte_reader byte_reader_of(const void *bytes, size_t size) {
    return {static_cast<const unsigned char *>(bytes), size};
}
// The next count bytes, borrowed; null (and the reader failed) when fewer are left.
inline const unsigned char *take_bytes(byte_reader *in, size_t count) {
    if (in->failed || in->size - in->offset < count) {
        in->failed = true;
        return nullptr;
    }
    const unsigned char *taken = in->bytes + in->offset;
    in->offset += count;
    return taken;
}
inline uint8_t take_u8(byte_reader *in) {
    const unsigned char *b = take_bytes(in, 1);
    return b ? *b : uint8_t{0};
}
inline uint16_t take_le16(byte_reader *in) {
    const unsigned char *b = take_bytes(in, 2);
    return b ? load_le16(b) : uint16_t{0};
}
inline uint32_t take_le32(byte_reader *in) {
    const unsigned char *b = take_bytes(in, 4);
    return b ? load_le32(b) : 0;
}
inline uint64_t take_le64(byte_reader *in) {
    const unsigned char *b = take_bytes(in, 8);
    return b ? load_le64(b) : 0;
}

} // namespace quillfence
