#include "byte_cursor.h"

#include <gtest/gtest.h>

namespace quillfence {
namespace {

constexpr unsigned char sample[] = {0x01, 0x82, 0x03, 0x84, 0x05, 0x86, 0x07, 0x88};

TEST(byte_cursor, integers_are_little_endian) {
    EXPECT_EQ(load_le16(sample), 0x8201);
    EXPECT_EQ(load_le32(sample), 0x84038201u);
    EXPECT_EQ(load_le64(sample), 0x8807860584038201u);
    EXPECT_EQ(load_le32(sample + 1), 0x05840382u); // at any place
}

TEST(byte_cursor, what_is_stored_is_loaded_and_nothing_else_changes) {
    unsigned char bytes[10];
    const auto rest_is_left = [&](size_t used) {
        for (size_t i = used; i < sizeof bytes; ++i) {
            EXPECT_EQ(bytes[i], 0xEE) << i;
        }
    };
    memset(bytes, 0xEE, sizeof bytes);
    store_le16(bytes, 0x8201);
    EXPECT_EQ(memcmp(bytes, sample, 2), 0);
    rest_is_left(2);
    store_le32(bytes, 0x84038201);
    EXPECT_EQ(memcmp(bytes, sample, 4), 0);
    rest_is_left(4);
    store_le64(bytes, 0x8807860584038201);
    EXPECT_EQ(memcmp(bytes, sample, 8), 0);
    rest_is_left(8);
}

TEST(byte_cursor, a_reader_goes_straight_down) {
    byte_reader in = byte_reader_of(sample, sizeof sample);
    EXPECT_EQ(take_u8(&in), 0x01);
    EXPECT_EQ(take_le16(&in), 0x0382);
    EXPECT_EQ(take_bytes(&in, 0), sample + 3);
    EXPECT_EQ(take_le32(&in), 0x07860584u);
    EXPECT_EQ(take_bytes(&in, 1), sample + 7);
    EXPECT_FALSE(in.failed);
    EXPECT_EQ(in.offset, sizeof sample);
    EXPECT_NE(take_bytes(&in, 0), nullptr) << "nothing is always there";
    byte_reader whole = byte_reader_of(sample, sizeof sample);
    EXPECT_EQ(take_le64(&whole), 0x8807860584038201u);
}

TEST(byte_cursor, once_something_did_not_fit_everything_is_zero) {
    byte_reader in = byte_reader_of(sample, 5);
    EXPECT_EQ(take_le32(&in), 0x84038201u);
    EXPECT_EQ(take_le16(&in), 0);
    EXPECT_TRUE(in.failed);
    EXPECT_EQ(take_u8(&in), 0) << "though one byte is left";
    EXPECT_EQ(take_le32(&in), 0u);
    EXPECT_EQ(take_le64(&in), 0u);
    EXPECT_EQ(take_bytes(&in, 0), nullptr);
    EXPECT_EQ(in.offset, 4u);
    byte_reader huge = byte_reader_of(sample, sizeof sample);
    take_u8(&huge);
    EXPECT_EQ(take_bytes(&huge, SIZE_MAX), nullptr) << "an offset that would wrap";
    byte_reader empty = byte_reader_of(nullptr, 0);
    EXPECT_EQ(take_u8(&empty), 0);
    EXPECT_TRUE(empty.failed);
}

} // namespace
} // namespace quillfence
