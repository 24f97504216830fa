#include "pseudonym.h"

#include <map>
#include <random>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "utf8.h"

namespace quillfence::testing {
namespace {

using namespace decision;

const std::string key = "0123456789abcdef";

std::string words_of(std::string_view text) {
    std::string found;
    with_words(text, [&](std::string_view in, word_place place) {
        found += (found.empty() ? "" : "|") + std::string(in.substr(place.at, place.size));
        return "";
    });
    return found;
}

TEST(pseudonym, words_of_a_text) {
    static constexpr struct {
        const char *text, *want;
    } cases[] = {
        {"", ""},
        {" @<>\"", ""},
        {"...", ""},
        {"-._.-", "_"},
        {"bob", "bob"},
        {"<bob.smith+news@mail.example.org>.", "bob.smith|news|mail.example.org"},
        {"\"a b\"@x", "a|b|x"},
        {"list-bounce+bob=x.example@list.example", "list-bounce|bob|x.example|list.example"},
        {"c:/quillfence/from_blacklist", "c|quillfence|from_blacklist"},
        {"m\xc3\xbcller \xff", "m\xc3\xbcller|\xff"},
        {".bob.-", "bob"},
        // Addresses are no words, wherever they stand.
        {"198.51.100.7", ""},
        {"from 198.51.100.7.", "from"},
        {"[198.51.100.7]:25", "25"},
        {"198.51.100.7:25", "25"},
        {"198.51.100.7@x", "x"},
        {"2001:db8::1", ""},
        {"[IPv6:2001:db8::1], 2001:db8::.", "IPv6"},
        {"::ffff:192.0.2.1 x: :: :y", "x|y"},
        {"198.51.100.777", "198.51.100.777"},
        {"198.51.100.7-x", "198.51.100.7-x"},
        {"bad:cafe:bob", "bad|cafe|bob"},
        {"7.100.51.198.in-addr.arpa.", "7.100.51.198.in-addr.arpa"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(words_of(c.text), c.want) << c.text;
    }
}

// What a character may be replaced by: 'a' a small letter, 'A' a capital, '0' a digit, the lead
// byte of a sequence for its length, '?' for a byte that is no UTF-8; all else for itself.
std::string shape_of(std::string_view text) {
    std::string shape;
    while (!text.empty()) {
        const size_t bytes = utf8_sequence(text);
        const char c = text[0];
        const bool ascii = bytes == 1;
        shape += !bytes                 ? std::string("?")
                 : !ascii               ? "<" + std::to_string(bytes) + ">"
                 : c >= 'a' && c <= 'z' ? "a"
                 : c >= 'A' && c <= 'Z' ? "A"
                 : c >= '0' && c <= '9' ? "0"
                                        : std::string(1, c);
        text.remove_prefix(bytes ? bytes : 1);
    }
    return shape;
}

std::string random_text(std::mt19937 &random) {
    static const std::string pieces[] = {"a",
                                         "k",
                                         "z",
                                         "B",
                                         "Q",
                                         "0",
                                         "7",
                                         ".",
                                         "-",
                                         "_",
                                         "+",
                                         "=",
                                         " ",
                                         "\"",
                                         "'",
                                         "*",
                                         "\xc3\xbc",
                                         "\xe6\x9d\x8e",
                                         "\xf0\x9f\x90\x9e",
                                         "\xff",
                                         "\xc3",
                                         "\x80",
                                         "\xed\xa0\x80",
                                         "\xe6\x9d"};
    std::string made;
    for (size_t n = random() % 12; n; --n) {
        made += pieces[random() % std::size(pieces)];
    }
    return made;
}

TEST(pseudonym, has_the_shape_of_its_text) {
    std::mt19937 random(1);
    pseudonyms names(key);
    for (int i = 0; i < 20000; ++i) {
        const std::string text = random_text(random);
        const std::string made = names.of(text);
        EXPECT_EQ(made.size(), text.size());
        EXPECT_EQ(shape_of(made), shape_of(text)) << text;
        if (text.find_first_not_of(".-_+= \"'*") != std::string::npos) {
            EXPECT_NE(made, text) << "nobody keeps the own name";
        } else {
            EXPECT_EQ(made, text);
        }
    }
}

TEST(pseudonym, is_the_key_s_and_the_text_s_alone) {
    pseudonyms one(key);
    pseudonyms again(key);
    pseudonyms other("0123456789abcdeg");
    again.of("something else before");
    for (const char *text : {"bob", "bob.smith", "x23", "M\xc3\xbcller"}) {
        EXPECT_EQ(one.of(text), again.of(text)) << text;
        EXPECT_EQ(one.of(text), one.of(text)) << text;
        EXPECT_NE(one.of(text), other.of(text)) << text;
    }
}

TEST(pseudonym, letter_case_is_the_text_s) {
    pseudonyms names(key);
    const std::string small = names.of("bob.smith");
    std::string capitals = small;
    for (char &c : capitals) {
        c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    }
    EXPECT_EQ(names.of("BOB.SMITH"), capitals);
    EXPECT_EQ(names.of("Bob.smith"), capitals.substr(0, 1) + small.substr(1));
    EXPECT_EQ(names.computed(), 1u) << "of one text, once";
}

// Each letter and digit comes as often as another: 26,000 and 10,000 draws of a mean of 1,000, and
// a sixth standard deviation is far off.
TEST(pseudonym, characters_are_evenly_drawn) {
    pseudonyms names(key);
    std::map<char, int> seen;
    for (int i = 0; i < 13000; ++i) {
        const std::string number = std::to_string(10000 + i);
        const std::string made = names.of("ab" + number);
        ++seen[made[0]];
        ++seen[made[1]];
        if (i < 2000) {
            for (const char digit : made.substr(2)) {
                ++seen[digit];
            }
        }
    }
    EXPECT_EQ(seen.size(), 36u);
    for (const auto &[character, count] : seen) {
        EXPECT_NEAR(count, 1000, 190) << character;
    }
}

TEST(pseudonym, two_texts_seldom_meet) {
    pseudonyms names(key);
    std::set<std::string> made;
    for (int i = 0; i < 10000; ++i) {
        made.insert(names.of("user" + std::to_string(10000 + i)));
    }
    // 10^4 of 26^4 * 10^5 possible ones: none is expected to meet.
    EXPECT_EQ(made.size(), 10000u);
}

TEST(pseudonym, domains_label_by_label) {
    pseudonyms names(key);
    const std::string mail = names.of("mail");
    const std::string label = names.of("x-y2");
    EXPECT_EQ(names.of_domain("mail.x-y2.example"), mail + '.' + label + ".example");
    EXPECT_EQ(names.of_domain("mail.x-y2.example."), mail + '.' + label + ".example.");
    EXPECT_EQ(names.of_domain("x-y2.example"), label + ".example");
    EXPECT_EQ(names.of_domain("localhost"), "localhost");
    EXPECT_EQ(names.of_domain("example."), "example.");
    EXPECT_EQ(names.of_domain(""), "");
    EXPECT_EQ(names.of_domain("..."), "...");
    EXPECT_EQ(names.of_domain("mail..x-y2.example"), mail + ".." + label + ".example");
    EXPECT_EQ(label[1], '-');
    EXPECT_EQ(shape_of(label), "a-a0");
}

} // namespace
} // namespace quillfence::testing
