#include "platform/format.h"

#include <climits>
#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace quillfence::platform {
namespace {

int measure(const char *format, ...) QF_PRINTF_LIKE(1, 2);
int measure(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = measure_text(format, arguments);
    va_end(arguments);
    return length;
}

// "abcdef" into buffers around its size.
TEST(format_text, cuts_at_the_size) {
    static constexpr struct {
        size_t size;
        int want;
        const char *want_text;
    } cases[] = {
        {8, 6, "abcdef"}, {7, 6, "abcdef"}, {6, -1, "abcde"}, {2, -1, "a"}, {1, -1, ""},
    };
    for (const auto &c : cases) {
        char buffer[9];
        memset(buffer, '#', sizeof buffer);
        EXPECT_EQ(format_text(buffer, c.size, "%s", "abcdef"), c.want) << c.size;
        EXPECT_STREQ(buffer, c.want_text) << c.size;
        EXPECT_EQ(buffer[c.size], '#') << c.size << ": wrote past the buffer";
    }
}

TEST(format_text, empty_text_fits_into_one_byte) {
    char buffer[1] = {'#'};
    EXPECT_EQ(format_text(buffer, 1, "%s", ""), 0);
    EXPECT_EQ(buffer[0], '\0');
}

TEST(format_text, refuses_what_it_cannot_use) {
    const char *volatile no_format = nullptr; // unseen by the compiler's format check
    char buffer[4] = "abc";
    EXPECT_EQ(format_text(nullptr, 4, "%d", 1), -1);
    EXPECT_EQ(format_text(buffer, 0, "%d", 1), -1);
    EXPECT_STREQ(buffer, "abc") << "a size of 0 leaves the buffer alone";
    va_list nothing = {};
    EXPECT_EQ(vformat_text(buffer, sizeof buffer, no_format, nothing), -1);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(measure_text(no_format, nothing), -1);
}

template <class... argument_types>
std::string formatted(const char *format, argument_types... arguments) {
    char buffer[128];
    const int length = format_text(buffer, sizeof buffer, format, arguments...);
    EXPECT_EQ(length, static_cast<int>(strlen(buffer))) << format;
    return buffer;
}

// The C99 conversions that an old Windows C library lacks or prints otherwise.
TEST(format_text, conversions_are_those_of_c99) {
    EXPECT_EQ(formatted("%zu", SIZE_MAX), "18446744073709551615");
    EXPECT_EQ(formatted("%lld", LLONG_MIN), "-9223372036854775808");
    EXPECT_EQ(formatted("%llu", ULLONG_MAX), "18446744073709551615");
    EXPECT_EQ(formatted("%ld", 2147483647L), "2147483647");
    EXPECT_EQ(formatted("%hhu", 255), "255");
    EXPECT_EQ(formatted("%02x", 10), "0a");
    EXPECT_EQ(formatted("%04d-%02d", 7, 3), "0007-03");
    EXPECT_EQ(formatted("%f", 1.2), "1.200000");
    EXPECT_EQ(formatted("%.17g", 0.1), "0.10000000000000001");
    EXPECT_EQ(formatted("%e", 12345.678), "1.234568e+04");
    EXPECT_EQ(formatted("%.3s|%5s|%-5s|", "abcdef", "x", "y"), "abc|    x|y    |");
    EXPECT_EQ(formatted("%d%%", 50), "50%");
}

// Such formats are put together without the C library.
TEST(format_text, formats_that_hold_texts_alone) {
    EXPECT_EQ(formatted(""), "");
    EXPECT_EQ(formatted("plain"), "plain");
    EXPECT_EQ(formatted("%s", ""), "");
    EXPECT_EQ(formatted("[%s] and [%s]%s", "a%sb", "", "c"), "[a%sb] and []c");
    EXPECT_EQ(formatted("%s%s", "ab", static_cast<const char *>(nullptr)), "ab(null)");
    EXPECT_EQ(formatted("%s%%", "50"), "50%");
    for (size_t size = 1; size < 8; ++size) { // cut within each piece
        char buffer[9];
        memset(buffer, '#', sizeof buffer);
        EXPECT_EQ(format_text(buffer, size, "<%s-%s>", "ab", "c"), size > 6 ? 6 : -1);
        EXPECT_EQ(buffer, std::string("<ab-c>").substr(0, size - 1));
        EXPECT_EQ(buffer[size], '#') << size << ": wrote past the buffer";
    }
}

TEST(measure_text, gives_the_whole_length) {
    EXPECT_EQ(measure("%s", ""), 0);
    EXPECT_EQ(measure("%s-%d", "abc", 42), 6);
    const std::string text(100000, 'x');
    EXPECT_EQ(measure("<%s>", text.c_str()), 100002);
}

} // namespace
} // namespace quillfence::platform
