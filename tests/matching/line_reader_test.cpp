#include "line_reader.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "call_watch.h"
#include "drive_c.h"

namespace quillfence::testing {
namespace {

constexpr char path[] = "c:/quillfence/lines";

class line_reader_test : public drive_test {
  protected:
    lines read(const std::string &bytes, uint32_t limit, bool crlf_is_lf) {
        drive.write(path, bytes);
        vc_handle file = vc_invalid_handle;
        EXPECT_EQ(platform::file_open(path, {}, &file), 0u);
        const auto in = std::make_unique<line_reader>();
        begin_lines(in.get(), file, limit, crlf_is_lf);
        lines found;
        uint32_t length = 0;
        while (const char *const line = next_line(in.get(), &length)) {
            EXPECT_EQ(line[length], '\0');
            found.emplace_back(line, length);
        }
        EXPECT_EQ(in->error, 0u);
        EXPECT_EQ(next_line(in.get(), &length), nullptr) << "the end is the end";
        platform::file_close(file);
        return found;
    }
};

// What fgets gives of a file in text mode, byte by byte, without the LF.
lines model_of_text(const std::string &bytes, size_t limit) {
    lines found;
    std::string line;
    const auto finish = [&] {
        if (!line.empty() && line.back() == '\n') {
            line.pop_back();
        }
        found.push_back(line);
        line.clear();
    };
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] == '\r' && i + 1 < bytes.size() && bytes[i + 1] == '\n') {
            continue;
        }
        line += bytes[i];
        if (bytes[i] == '\n' || line.size() == limit) {
            finish();
        }
    }
    if (!line.empty()) {
        finish();
    }
    return found;
}

// Blocks of at most limit bytes that end behind an LF; LF and the CR before it taken off.
lines model_of_blocks(const std::string &bytes, size_t limit) {
    lines found;
    for (size_t at = 0; at < bytes.size();) {
        const size_t lf = bytes.find('\n', at);
        std::string line =
            bytes.substr(at, std::min(limit, lf == std::string::npos ? limit : lf - at + 1));
        at += line.size();
        if (line.back() == '\n') {
            line.pop_back();
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
        }
        found.push_back(line);
    }
    return found;
}

TEST_F(line_reader_test, lines_and_their_ends) {
    static const struct {
        const char *name;
        std::string bytes;
        lines want;
    } cases[] = {
        {"empty file", "", {}},
        {"one line", "a\n", {"a"}},
        {"last line without an end", "a\nb", {"a", "b"}},
        {"only an LF", "\n", {""}},
        {"CR LF", "a\r\nb\r\n", {"a", "b"}},
        {"only CR LF", "\r\n", {""}},
        {"lone CR", "a\rb\n\rc\n", {"a\rb", "\rc"}},
        {"CR CR LF", "a\r\r\n", {"a\r"}},
        {"CR at the end of the file", "a\r", {"a\r"}},
        {"0x1A", "a\x1A\nb\n", {"a\x1A", "b"}},
        {"NUL", std::string("a\0b\nc\n", 6), {std::string("a\0b", 3), "c"}},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(read(c.bytes, 1022, true), c.want) << c.name;
        EXPECT_EQ(read(c.bytes, 1023, false), c.want) << c.name;
    }
}

TEST_F(line_reader_test, a_line_end_counts_in_the_limit) {
    const std::string x1021(1021, 'x');
    const std::string x1022(1022, 'x');
    const std::string x1023(1023, 'x');
    EXPECT_EQ(read(x1021 + "\na", 1022, true), (lines{x1021, "a"}));
    EXPECT_EQ(read(x1021 + "\r\na", 1022, true), (lines{x1021, "a"})) << "CR LF is one character";
    EXPECT_EQ(read(x1022 + "\na", 1022, true), (lines{x1022, "", "a"}));
    EXPECT_EQ(read(x1022 + "\r\na", 1022, true), (lines{x1022, "", "a"}));
    EXPECT_EQ(read(x1022 + "yz\n", 1022, true), (lines{x1022, "yz"}));
    EXPECT_EQ(read(x1021 + "\ry\n", 1022, true), (lines{x1021 + "\r", "y"}));
    EXPECT_EQ(read(x1022, 1022, true), (lines{x1022}));
    EXPECT_EQ(read(x1022 + x1022 + "y", 1022, true), (lines{x1022, x1022, "y"}));

    EXPECT_EQ(read(x1022 + "\na", 1023, false), (lines{x1022, "a"}));
    EXPECT_EQ(read(x1022 + "\r\na", 1023, false), (lines{x1022 + "\r", "", "a"}));
    EXPECT_EQ(read(x1023 + "\na", 1023, false), (lines{x1023, "", "a"}));
}

TEST_F(line_reader_test, agrees_with_a_naive_reader_at_every_border) {
    std::mt19937 random(20261121);
    const auto any = [&](size_t below) { return random() % below; };
    static constexpr size_t lengths[] = {0, 1, 2, 30, 1020, 1021, 1022, 1023, 1024, 2044, 2045};
    static constexpr const char *ends[] = {"\n", "\r\n", "\r", "\r\r\n", "\n\n"};
    for (int round = 0; round < 60; ++round) {
        std::string bytes;
        const size_t wanted = round < 40 ? line_piece_size * (1 + any(3)) : any(3000);
        while (bytes.size() < wanted) {
            bytes += std::string(lengths[any(std::size(lengths))], "ab \t#"[any(5)]);
            bytes += ends[any(std::size(ends))];
        }
        bytes.resize(bytes.size() - any(3) % bytes.size());
        ASSERT_EQ(read(bytes, 1022, true), model_of_text(bytes, 1022)) << "round " << round;
        ASSERT_EQ(read(bytes, 1023, false), model_of_blocks(bytes, 1023)) << "round " << round;
        ASSERT_EQ(read(bytes, 3, true), model_of_text(bytes, 3)) << "round " << round;
        ASSERT_EQ(read(bytes, 3, false), model_of_blocks(bytes, 3)) << "round " << round;
    }
}

TEST_F(line_reader_test, one_call_a_piece) {
    drive.write(path, std::string(5000, '\n') + std::string(2 * line_piece_size, 'x'));
    vc_handle file = vc_invalid_handle;
    ASSERT_EQ(platform::file_open(path, {}, &file), 0u);
    const auto in = std::make_unique<line_reader>();
    begin_lines(in.get(), file, 1022, true);
    call_watch calls;
    uint32_t length = 0;
    while (next_line(in.get(), &length)) {
    }
    const lines got = calls.take();
    EXPECT_EQ(got, lines(got.size(), "file_read"));
    EXPECT_LE(got.size(), 5u) << "70536 bytes are three pieces; one more call finds the end";
    platform::file_close(file);
}

TEST_F(line_reader_test, a_failed_read_is_told_apart_from_the_end) {
    drive.write(path, "one\ntwo");
    vc_handle file = vc_invalid_handle;
    ASSERT_EQ(platform::file_open(path, {}, &file), 0u);
    const auto in = std::make_unique<line_reader>();
    begin_lines(in.get(), file, 1022, true);
    call_watch calls;
    calls.fail("file_read", 2, 1117);
    uint32_t length = 0;
    EXPECT_STREQ(next_line(in.get(), &length), "one");
    EXPECT_EQ(next_line(in.get(), &length), nullptr) << "the rest may be half a line";
    EXPECT_EQ(in->error, 1117u);
    platform::file_close(file);
}

} // namespace
} // namespace quillfence::testing
