#include "text_decoder.h"

#include <string>

#include <gtest/gtest.h>

namespace quillfence::programs {
namespace {

// The text as UTF-8, read in pieces of so many bytes.
std::string decoded(const std::string &bytes, size_t piece, std::string *remark = nullptr) {
    text_decoder decoder;
    std::string text;
    for (size_t at = 0; at < bytes.size(); at += piece) {
        text += decoder.decode(std::string_view(bytes).substr(at, piece));
    }
    text += decoder.finish();
    if (remark) {
        *remark = decoder.remark();
    }
    return text;
}

TEST(text_decoder, texts) {
    static const std::string utf16 = "is a text in UTF-16, which is read as such";
    static const std::string marked = "begins with a byte order mark, which is left out";
    const struct {
        const char *name;
        std::string bytes;
        std::string want;
        std::string remark;
    } cases[] = {
        {"nothing", "", "", ""},
        {"ASCII", "ab\n", "ab\n", ""},
        {"any bytes", std::string("\xE9\0\xFF", 3), std::string("\xE9\0\xFF", 3), ""},
        {"half a mark", "\xEF\xBB", "\xEF\xBB", ""},
        {"half a mark, then text", "\xEF\xBBx", "\xEF\xBBx", ""},
        {"one byte of a mark", "\xFF", "\xFF", ""},
        {"UTF-8 with a mark",
         "\xEF\xBB\xBF"
         "\xC3\xA4",
         "\xC3\xA4", marked},
        {"a mark in the middle stays", "a\xEF\xBB\xBF", "a\xEF\xBB\xBF", ""},
        {"a mark and nothing", "\xEF\xBB\xBF", "", marked},
        {"little-endian",
         std::string("\xFF\xFE"
                     "a\0\xE4\0\xAC\x20",
                     8),
         "a\xC3\xA4\xE2\x82\xAC", utf16},
        {"big-endian", std::string("\xFE\xFF\0a\0\xE4\x20\xAC", 8), "a\xC3\xA4\xE2\x82\xAC", utf16},
        {"a pair", std::string("\xFF\xFE\x3D\xD8\0\xDE!\0", 8), "\xF0\x9F\x98\x80!", utf16},
        {"a lone high surrogate",
         std::string("\xFF\xFE\x3D\xD8"
                     "a\0",
                     6),
         "\xEF\xBF\xBD"
         "a",
         utf16},
        {"a lone low surrogate", "\xFF\xFE\x01\xDE", "\xEF\xBF\xBD", utf16},
        {"a high surrogate at the end", "\xFF\xFE\x3D\xD8", "\xEF\xBF\xBD", utf16},
        {"half a unit",
         "\xFF\xFE"
         "a",
         "\xEF\xBF\xBD", utf16},
    };
    for (const auto &c : cases) {
        for (size_t piece = 1; piece <= 8; ++piece) {
            std::string remark;
            EXPECT_EQ(decoded(c.bytes, piece, &remark), c.want) << c.name << ", " << piece;
            EXPECT_EQ(remark, c.remark) << c.name << ", " << piece;
        }
    }
}

TEST(text_decoder, nothing_is_copied_of_a_plain_text) {
    text_decoder decoder;
    decoder.decode("abcd");
    const std::string more = "efgh";
    EXPECT_EQ(decoder.decode(more).data(), more.data());
}

} // namespace
} // namespace quillfence::programs
