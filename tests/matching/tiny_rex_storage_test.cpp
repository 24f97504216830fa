#include "tiny_rex_storage.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "drive_c.h"
#include "platform/file.h"
#include "platform/observer.h"

namespace quillfence {
namespace {

using testing::drive_test;
using testing::lines;
using testing::traced_drive_test;

constexpr char path[] = "c:/quillfence/dynaregex/dyna.cregexes";

struct deleter {
    void operator()(TRex *expression) const {
        trex_free(expression);
    }
    void operator()(FILE *stream) const {
        std::fclose(stream);
    }
};
using expression_ptr = std::unique_ptr<TRex, deleter>;
using stream_ptr = std::unique_ptr<FILE, deleter>;

// --- Files by hand ------------------------------------------------------------------------------

std::string le32(int64_t value) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(static_cast<uint64_t>(value) >> shift & 0xFF);
    }
    return bytes;
}

std::string node(int64_t type, int64_t left = -1, int64_t right = -1, int64_t next = -1) {
    return le32(type) + le32(left) + le32(right) + le32(next);
}

const std::string header("\xB9\xEB\x00\x00", 4);

// ^<letter>$ as a block of four nodes.
std::string letter_block(char letter) {
    return le32(4) + node(258, 1, 0) + node(267, -1, -1, 2) + node(letter, -1, -1, 3) + node(266);
}

const std::string not_valid =
    "compiled_regex_match: file [c:/quillfence/dynaregex/dyna.cregexes] is not a valid vellumcraft "
    "generated regex file";

class tiny_rex_storage : public drive_test {
  protected:
    // Answers for the one-letter names a, b and c.
    std::string answers(const std::string &bytes) {
        drive.write(path, bytes);
        std::string hits;
        for (const char *name : {"a", "b", "c"}) {
            hits += compiled_regex_match(path, name) ? name : "-";
        }
        return hits;
    }
};
class tiny_rex_storage_traced : public traced_drive_test {};

TEST_F(tiny_rex_storage, missing_arguments) {
    EXPECT_EQ(compiled_regex_match(nullptr, "a"), 0);
    EXPECT_EQ(compiled_regex_match("", "a"), 0);
    EXPECT_EQ(compiled_regex_match(path, nullptr), 0);
    EXPECT_EQ(log.errors(), lines(3, "compiled_regex_match: Invalid argument"));
}

TEST_F(tiny_rex_storage, a_missing_file_matches_nothing_silently) {
    EXPECT_EQ(compiled_regex_match(path, "a"), 0);
    EXPECT_FALSE(drive.exists(path));
    drive.make_folder(path); // a folder is no file
    EXPECT_EQ(compiled_regex_match(path, "a"), 0);
}

TEST_F(tiny_rex_storage, a_file_of_the_magic_alone_matches_nothing_silently) {
    EXPECT_EQ(answers(header), "---");
}

TEST_F(tiny_rex_storage, a_file_matches_what_one_of_its_blocks_matches) {
    EXPECT_EQ(answers(header + letter_block('a')), "a--");
    EXPECT_EQ(answers(header + letter_block('a') + letter_block('c')), "a-c");
    EXPECT_EQ(compiled_regex_match(path, "A"), 1); // case is folded
    EXPECT_EQ(compiled_regex_match(path, "aa"), 0);
    EXPECT_EQ(compiled_regex_match(path, ""), 0);
}

TEST_F(tiny_rex_storage, a_file_without_the_magic_is_refused_as_a_whole) {
    const std::string block = letter_block('a');
    EXPECT_EQ(answers(std::string("\xB9\xEB\x00\x01", 4) + block), "---");
    EXPECT_EQ(log.errors(), lines(3, not_valid));
    EXPECT_EQ(answers(std::string("\x00\x00\xEB\xB9", 4) + block), "---");
    EXPECT_EQ(log.errors(), lines(3, not_valid));
}

TEST_F(tiny_rex_storage, what_is_written_is_read_back) {
    drive.write(path, "an old file");
    const stream_ptr stream(platform::stream_open(path, "r+b"));
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(trs_set_header(stream.get()), 1);
    for (const char *pattern : {"^a$", "^(b|x)"}) {
        const expression_ptr expression(trex_compile_ex(pattern, trex_exact_case));
        EXPECT_EQ(trs_store(stream.get(), expression.get()), 1);
    }
    EXPECT_EQ(std::fflush(stream.get()), 0);
    EXPECT_EQ(drive.read(path).substr(0, 4), header);
    EXPECT_EQ(trs_valid_file(stream.get()), 1);
    EXPECT_EQ(std::ftell(stream.get()), 4);

    const expression_ptr expression(static_cast<TRex *>(std::calloc(1, sizeof(TRex))));
    EXPECT_EQ(trs_next(stream.get(), expression.get()), 1);
    EXPECT_EQ(trex_match(expression.get(), "A"), 1);
    EXPECT_EQ(trs_next(stream.get(), expression.get()), 1); // replaces the first
    EXPECT_EQ(trex_match(expression.get(), "bee"), 1);
    EXPECT_EQ(trex_match(expression.get(), "a"), 0);
    EXPECT_EQ(trs_next(stream.get(), expression.get()), 0);
    EXPECT_EQ(compiled_regex_match(path, "xyz"), 1);
}

} // namespace
} // namespace quillfence
