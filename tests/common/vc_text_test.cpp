#include "vc_text.h"

#include <algorithm>
#include <climits>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace quillfence {
namespace {

// Which bytes are in a class, all 256 of them.
std::string members_of(bool (*is_member)(char)) {
    std::string members;
    for (int byte = 0; byte < 256; ++byte) {
        if (is_member(static_cast<char>(byte))) {
            members += static_cast<char>(byte);
        }
    }
    return members;
}

const std::string digits = "0123456789";
const std::string upper = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
const std::string lower = "abcdefghijklmnopqrstuvwxyz";

TEST(vc_text, character_classes_are_ascii) {
    EXPECT_EQ(members_of(is_space), "\t\n\v\f\r ");
    EXPECT_EQ(members_of(is_digit), digits);
    EXPECT_EQ(members_of(is_upper), upper);
    EXPECT_EQ(members_of(is_lower), lower);
    EXPECT_EQ(members_of(is_letter), upper + lower);
    EXPECT_EQ(members_of(is_alphanumeric), digits + upper + lower);
    std::string printable;
    for (char c = 0x20; c <= 0x7E; ++c) {
        printable += c;
    }
    EXPECT_EQ(members_of(is_printable), printable);
}

TEST(vc_text, only_ascii_letters_have_two_cases) {
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const size_t in_upper = upper.find(c);
        const size_t in_lower = lower.find(c);
        EXPECT_EQ(to_lower(c), in_upper == std::string::npos ? c : lower[in_upper]) << byte;
        EXPECT_EQ(to_upper(c), in_lower == std::string::npos ? c : upper[in_lower]) << byte;
    }
}

TEST(vc_text, empty_texts) {
    EXPECT_TRUE(is_empty(nullptr));
    EXPECT_TRUE(is_empty(""));
    EXPECT_FALSE(is_empty(" "));
}

int sign_of(int number) {
    return (number > 0) - (number < 0);
}

TEST(vc_text, stricmp_compares_as_strcmp_does_with_lower_case) {
    const struct {
        const char *a, *b;
        int want;
    } cases[] = {
        {"", "", 0},          {"a", "", 1},          {"", "a", -1},       {"abc", "ABC", 0},
        {"abc", "ABD", -1},   {"Z", "a", 1},         {"_", "a", -1},      {"_", "A", -1},
        {"\xC4", "\xE4", -1}, // '_' lies between the cases
        {"\x80", "z", 1},     {"a\x80", "A\x80", 0}, {"abc", "abcd", -1},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(sign_of(_stricmp(c.a, c.b)), c.want) << c.a << ", " << c.b;
        EXPECT_EQ(sign_of(_stricmp(c.b, c.a)), -c.want) << c.b << ", " << c.a;
    }
}

TEST(vc_text, stricmp_of_random_texts) {
    std::mt19937 random(5);
    const auto text = [&] {
        std::string made(random() % 6, ' ');
        for (char &c : made) {
            c = "aAbBzZ[_`\x7F\x80\xC4\xE4\xFF"[random() % 14];
        }
        return made;
    };
    const auto lowered = [](std::string made) {
        std::transform(made.begin(), made.end(), made.begin(), [](char c) {
            const size_t place = upper.find(c);
            return place == std::string::npos ? c : lower[place];
        });
        return made;
    };
    for (int round = 0; round < 20000; ++round) {
        const std::string a = text();
        const std::string b = text();
        // std::string compares bytes as unsigned, too.
        ASSERT_EQ(sign_of(_stricmp(a.c_str(), b.c_str())), sign_of(lowered(a).compare(lowered(b))))
            << a << ", " << b;
    }
}

TEST(vc_text, numbers_are_clamped_to_an_int) {
    const struct {
        const char *text;
        int want;
    } cases[] = {
        {"0", 0},
        {"42", 42},
        {"-7x", -7},
        {" \t+3", 3},
        {"", 0},
        {"x", 0},
        {"0x10", 0},
        {"2147483647", INT_MAX},
        {"2147483648", INT_MAX},
        {"-2147483648", INT_MIN},
        {"-2147483649", INT_MIN},
        {"99999999999999999999", INT_MAX},
        {"-99999999999999999999", INT_MIN},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(text_to_int(c.text), c.want) << c.text;
    }
}

} // namespace
} // namespace quillfence
