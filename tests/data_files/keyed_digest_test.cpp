#include "keyed_digest.h"

#include <filesystem>

#include "drive_c.h"
#include "open_file.h"
#include "text.h"

namespace quillfence::testing {
namespace {

using namespace data_files;

constexpr char path[] = "c:/quillfence/key";

std::string hex(const keyed_digest &digest) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : digest) {
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

// The test cases of RFC 4231; of number 5 it gives the first half alone.
TEST(keyed_digest, values_of_the_rfc) {
    std::string counted;
    for (char byte = 1; byte <= 25; ++byte) {
        counted += byte;
    }
    const struct {
        std::string key, text, want;
    } cases[] = {
        {std::string(20, '\x0b'), "Hi There",
         "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
        {"Jefe", "what do ya want for nothing?",
         "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
        {std::string(20, '\xaa'), std::string(50, '\xdd'),
         "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe"},
        {counted, std::string(50, '\xcd'),
         "82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b"},
        {std::string(20, '\x0c'), "Test With Truncation", "a3b6167473100ee06e0c796c2955552b"},
        {std::string(131, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First",
         "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
        {std::string(131, '\xaa'),
         "This is a test using a larger than block-size key and a larger than block-size data. The "
         "key needs to be hashed before being used by the HMAC algorithm.",
         "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(hex(keyed_digest_of(c.key, c.text)).substr(0, c.want.size()), c.want) << c.text;
    }
}

using key_file_of = drive_test;

TEST_F(key_file_of, bytes_and_line_ends) {
    const std::string key = "0123456789abcdef";
    const struct {
        std::string bytes, want;
    } cases[] = {
        {key, key},
        {key + "\n", key},
        {key + "\r\n", key},
        {key + "\n\n", key + "\n"}, // one line end is the editor's, two are the key's
        {key + "\r", key + "\r"},
        {std::string(16, '\0'), std::string(16, '\0')},
        {"\xff\xfe" + key, "\xff\xfe" + key},
        {std::string(largest_key, 'k') + "\r\n", std::string(largest_key, 'k')},
    };
    for (const auto &c : cases) {
        drive.write(path, c.bytes);
        const key_file found = read_key_file(path);
        EXPECT_EQ(found.failed, "");
        EXPECT_EQ(found.key, c.want);
    }
}

TEST_F(key_file_of, what_is_refused) {
    const struct {
        std::string bytes, want;
    } cases[] = {
        {"", "a key has at least 16 bytes, and this one has 0"},
        {"\r\n", "a key has at least 16 bytes, and this one has 0"},
        {"0123456789abcde\n", "a key has at least 16 bytes, and this one has 15"},
        {std::string(largest_key + 1, 'k'), "a key has at most 65536 bytes"},
        {std::string(10 * largest_key, 'k'), "a key has at most 65536 bytes"},
    };
    for (const auto &c : cases) {
        drive.write(path, c.bytes);
        EXPECT_EQ(read_key_file(path).failed, path + (": " + c.want));
    }
    drive.remove(path);
    EXPECT_EQ(read_key_file(path).failed, path + (": " + system_text(2)));
    EXPECT_FALSE(drive.exists(path));
}

// Which rights make a file private is the system's business.
TEST_F(key_file_of, others_may_read_it) {
    using std::filesystem::perms;
    drive.write(path, "0123456789abcdef");
    for (const perms rights : {perms(0600), perms(0644)}) {
        std::filesystem::permissions(drive.native(path), rights);
        open_file file;
        bool is_private = false;
        ASSERT_EQ(file.open(path), 0u);
        ASSERT_EQ(platform::file_is_private(file.handle(), &is_private), 0u);
        const key_file found = read_key_file(path);
        EXPECT_EQ(found.key, "0123456789abcdef");
        EXPECT_EQ(found.warning,
                  is_private ? "" : path + std::string(": others may read this key"));
    }
}

} // namespace
} // namespace quillfence::testing
