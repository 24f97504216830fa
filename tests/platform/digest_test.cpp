// Values of FIPS 180-4's examples and, for the empty text, of its algorithm.
#include "platform/digest.h"

#include <string>

#include <gtest/gtest.h>

namespace quillfence::testing {
namespace {

std::string hex(const unsigned char *bytes, size_t size) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        text += {digits[bytes[i] >> 4], digits[bytes[i] & 15]};
    }
    return text;
}

// The digest of a text that is added in pieces of that size.
std::string digest_of(const std::string &text, size_t piece) {
    platform::sha256_digest *const digest = platform::sha256_begin();
    EXPECT_NE(digest, nullptr);
    for (size_t at = 0; at < text.size(); at += piece) {
        const std::string part = text.substr(at, piece);
        EXPECT_TRUE(platform::sha256_add(digest, part.data(), part.size()));
    }
    unsigned char result[platform::sha256_size] = {};
    EXPECT_TRUE(platform::sha256_finish(digest, result));
    platform::sha256_release(digest);
    return hex(result, sizeof result);
}

TEST(platform_digest, known_values) {
    const struct {
        std::string text, want;
    } cases[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {std::string(1000000, 'a'),
         "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(digest_of(c.text, 1 << 20), c.want) << c.text.substr(0, 60);
        EXPECT_EQ(digest_of(c.text, 63), c.want) << "in pieces of 63 bytes";
    }
}

TEST(platform_digest, release_accepts_null) {
    platform::sha256_release(nullptr);
}

} // namespace
} // namespace quillfence::testing
