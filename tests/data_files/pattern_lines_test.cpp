#include "pattern_lines.h"

#include "drive_c.h"
#include "file_digest.h"

namespace quillfence::data_files {
namespace {

using namespace testing;

constexpr char compiled[] = "c:/quillfence/dynaregex/dyna.cregexes";
// Of the text "abc".
constexpr char digest[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class pattern_lines_test : public drive_test {
  protected:
    void put(const std::string &bytes) const {
        drive.write(std::string(compiled) + ".lines", bytes);
    }
};

std::string head() {
    return std::string("# quillfence pattern lines 1\n# sha256 ") + digest + "\n";
}

TEST_F(pattern_lines_test, the_text_as_the_page_has_it) {
    EXPECT_EQ(pattern_lines_text(digest, {{9, "confirmed.list"}, {12, "confirmed.list"}}),
              head() + "1\t9\tconfirmed.list\n2\t12\tconfirmed.list\n");
    EXPECT_EQ(pattern_lines_text(digest, {}), head());
}

TEST_F(pattern_lines_test, what_was_written_is_read_back) {
    put(pattern_lines_text(digest, {{9, "a list.txt"}, {4294967295, "x\ty\n\x80"}}));
    const pattern_lines read = read_pattern_lines(compiled, digest);
    EXPECT_EQ(read.is, pattern_lines::state::current);
    ASSERT_EQ(read.origins.size(), 2u);
    EXPECT_EQ(read.origins[0].line, 9u);
    EXPECT_EQ(read.origins[0].list, "a list.txt");
    EXPECT_EQ(read.origins[1].line, 4294967295);
    EXPECT_EQ(read.origins[1].list, "x?y??");
}

TEST_F(pattern_lines_test, missing_and_stale) {
    EXPECT_EQ(read_pattern_lines(compiled, digest).is, pattern_lines::state::missing);
    put(pattern_lines_text(digest, {{9, "a"}}));
    const pattern_lines read = read_pattern_lines(compiled, digest_of("abd"));
    EXPECT_EQ(read.is, pattern_lines::state::stale);
    EXPECT_TRUE(read.origins.empty());
}

TEST_F(pattern_lines_test, a_wrong_file_is_told_with_its_line) {
    const struct {
        const char *name;
        std::string bytes, problem;
    } cases[] = {
        {"empty", "", "does not begin"},
        {"another first line", "# lines 2\n" + head(), "does not begin"},
        {"no digest", "# quillfence pattern lines 1\n1\t2\ta\n", "does not begin"},
        {"no number", head() + "x\t2\ta\n", "line 3 is not \"1 TAB line TAB list\""},
        {"out of order", head() + "1\t2\ta\n3\t3\ta\n", "line 4 is not \"2 TAB line TAB list\""},
        {"no list", head() + "1\t2\t\n", "line 3"},
        {"ends in a number", head() + "1\t2", "line 3"},
        {"a number out of range", head() + "1\t4294967296\ta\n", "line 3"},
        {"negative", head() + "1\t-2\ta\n", "line 3"},
    };
    for (const auto &c : cases) {
        put(c.bytes);
        const pattern_lines read = read_pattern_lines(compiled, digest);
        EXPECT_EQ(read.is, pattern_lines::state::wrong) << c.name;
        EXPECT_NE(read.problem.find(c.problem), std::string::npos) << c.name << read.problem;
        EXPECT_TRUE(read.origins.empty()) << c.name;
    }
}

TEST_F(pattern_lines_test, digests) {
    EXPECT_EQ(digest_of("abc"), digest);
    drive.write("c:/quillfence/a", std::string(1000000, 'a'));
    std::string of_file;
    uint64_t size = 0;
    EXPECT_EQ(digest_of_file("c:/quillfence/a", &of_file, &size), 0u);
    EXPECT_EQ(of_file, "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
    EXPECT_EQ(size, 1000000u);
    drive.write("c:/quillfence/b", "");
    EXPECT_EQ(digest_of_file("c:/quillfence/b", &of_file, &size), 0u);
    EXPECT_EQ(of_file, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(size, 0u);
    EXPECT_NE(digest_of_file("c:/quillfence/missing", &of_file, &size), 0u);
}

} // namespace
} // namespace quillfence::data_files
