#include "vc_stringutils.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cwchar>
#include <random>

#include "failing_memory.h"
#include "heap_text.h"
#include "log_capture.h"

namespace quillfence::testing {
namespace {

const std::string einval = strerror(EINVAL);
const std::string enomem = strerror(ENOMEM);

class vc_strings : public traced_test {};

// vc_strcat, vc_ccat

TEST_F(vc_strings, strcat_into_an_empty_slot_makes_a_string) {
    text_slot slot;
    EXPECT_EQ(vc_strcat(slot.slot(), "ab"), 1);
    EXPECT_EQ(slot.str(), "ab");
    EXPECT_EQ(log.transcript(), (lines{
                                    "D vc_strcat: destination is NULL - new string",
                                    "D vc_strcat: allocated",
                                    "D vc_strcat: string appended [ab]",
                                }));
}

TEST_F(vc_strings, strcat_appends) {
    text_slot slot("ab");
    EXPECT_EQ(vc_strcat(slot.slot(), "cd"), 1);
    EXPECT_EQ(slot.str(), "abcd");
    EXPECT_EQ(log.transcript(), (lines{
                                    "D vc_strcat: destination set - reallocating length",
                                    "D vc_strcat: destination length reallocated",
                                    "D vc_strcat: string appended [abcd]",
                                }));
}

TEST_F(vc_strings, strcat_of_nothing) {
    text_slot slot("ab");
    EXPECT_EQ(vc_strcat(slot.slot(), ""), 1);
    EXPECT_EQ(slot.str(), "ab");
    text_slot empty;
    EXPECT_EQ(vc_strcat(empty.slot(), ""), 1);
    EXPECT_EQ(empty.str(), "");
}

TEST_F(vc_strings, strcat_of_the_own_text) {
    text_slot slot("abc");
    EXPECT_EQ(vc_strcat(slot.slot(), slot.text), 1);
    EXPECT_EQ(slot.str(), "abcabc");
    EXPECT_EQ(vc_strcat(slot.slot(), slot.text + 4), 1);
    EXPECT_EQ(slot.str(), "abcabcbc");
    EXPECT_EQ(vc_strcat(slot.slot(), slot.text + 8), 1);
    EXPECT_EQ(slot.str(), "abcabcbc");
}

TEST_F(vc_strings, ccat) {
    text_slot slot;
    EXPECT_EQ(vc_ccat(slot.slot(), 'a'), 1);
    EXPECT_EQ(vc_ccat(slot.slot(), 'b'), 1);
    EXPECT_EQ(slot.str(), "ab");
    EXPECT_EQ(log.transcript(), (lines{
                                    "D vc_ccat: original string [(null)] character to append [a]",
                                    "D vc_ccat: character appended [a] [a]",
                                    "D vc_ccat: original string [a] character to append [b]",
                                    "D vc_ccat: character appended [ab] [b]",
                                }));
}

TEST_F(vc_strings, ccat_refuses_the_character_0) {
    text_slot slot("ab");
    EXPECT_EQ(vc_ccat(slot.slot(), '\0'), 0);
    EXPECT_EQ(slot.str(), "ab");
    EXPECT_EQ(log.transcript(), (lines{"E vc_ccat: " + einval}));
}

// vc_ltoa, vc_icat

TEST_F(vc_strings, ltoa_positive) {
    text_slot slot;
    EXPECT_EQ(vc_ltoa(slot.slot(), 2147483647), 1);
    EXPECT_EQ(slot.str(), "2147483647");
    EXPECT_EQ(log.transcript(), (lines{
                                    "D vc_ltoa: converting [2147483647]",
                                    "D vc_ltoa: determined buffer size of 11",
                                    "D vc_ltoa: buffer allocated",
                                    "D vc_ltoa: converted to 2147483647",
                                }));
}

TEST_F(vc_strings, ltoa_negative_into_a_set_slot) {
    text_slot slot("old");
    EXPECT_EQ(vc_ltoa(slot.slot(), -5), 1);
    EXPECT_EQ(slot.str(), "-5");
    EXPECT_EQ(log.transcript(),
              (lines{
                  "D vc_ltoa: converting [-5]",
                  "D vc_ltoa: added room for '-' sign",
                  "D vc_ltoa: determined buffer size of 3",
                  "D vc_ltoa: buffer allocated",
                  "D vc_ltoa: converted to -5",
                  "D vc_ltoa: destination buffer already set - calling free to replace",
              }));
}

TEST_F(vc_strings, ltoa_values) {
    const struct {
        int32_t value;
        const char *want;
        int want_size;
    } cases[] = {
        {0, "0", 2},
        {9, "9", 2},
        {10, "10", 3},
        {99, "99", 3},
        {100, "100", 4},
        {-1, "-1", 3},
        {-9, "-9", 3},
        {-10, "-10", 4},
        {1000000000, "1000000000", 11},
        {-2147483647, "-2147483647", 12},
        {INT32_MIN, "-2", 3}, // kept on purpose
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.value);
        text_slot slot;
        EXPECT_EQ(vc_ltoa(slot.slot(), c.value), 1);
        EXPECT_EQ(slot.str(), c.want);
        const lines debugs = log.debugs();
        const std::string size_line =
            "vc_ltoa: determined buffer size of " + std::to_string(c.want_size);
        EXPECT_EQ(std::count(debugs.begin(), debugs.end(), size_line), 1) << size_line;
    }
}

TEST_F(vc_strings, icat) {
    text_slot slot("n=");
    EXPECT_EQ(vc_icat(slot.slot(), -42), 1);
    EXPECT_EQ(slot.str(), "n=-42");
    EXPECT_EQ(log.transcript(), (lines{
                                    "D vc_ltoa: converting [-42]",
                                    "D vc_ltoa: added room for '-' sign",
                                    "D vc_ltoa: determined buffer size of 4",
                                    "D vc_ltoa: buffer allocated",
                                    "D vc_ltoa: converted to -42",
                                    "D vc_strcat: destination set - reallocating length",
                                    "D vc_strcat: destination length reallocated",
                                    "D vc_strcat: string appended [n=-42]",
                                }));
    text_slot empty;
    EXPECT_EQ(vc_icat(empty.slot(), 7), 1);
    EXPECT_EQ(empty.str(), "7");
}

// vc_lower, vc_upper

TEST_F(vc_strings, lower_and_upper) {
    char text[] = "aZ@[`{9\xC4\xE4";
    vc_lower(text);
    EXPECT_STREQ(text, "az@[`{9\xC4\xE4");
    vc_upper(text);
    EXPECT_STREQ(text, "AZ@[`{9\xC4\xE4");
    EXPECT_EQ(log.transcript(), (lines{
                                    "D vc_lower: converting from [aZ@[`{9??]",
                                    "D vc_lower: converted to [az@[`{9??]",
                                    "D vc_upper: converting from [az@[`{9??]",
                                    "D vc_upper: converted to [AZ@[`{9??]",
                                }));
    vc_lower(nullptr);
    vc_upper(nullptr);
    EXPECT_EQ(log.transcript(), (lines{"E vc_lower: " + einval, "E vc_upper: " + einval}));
}

// Trimming in place

TEST_F(vc_strings, trim_ex) {
    const struct {
        const char *text;
        int flags;
        const char *want;
    } cases[] = {
        {"  a b \t", vc_trim_flag_left, "a b \t"},
        {"  a b \t", vc_trim_flag_right, "  a b"},
        {"  a b \t", vc_trim_flag_left | vc_trim_flag_right, "a b"},
        {"  a b \t", 0xFF, "a b"},
        {" \t\n\v\f\r ", vc_trim_flag_left, ""},
        {" \t\n\v\f\r ", vc_trim_flag_right, ""},
        {" \t\n\v\f\r ", vc_trim_flag_left | vc_trim_flag_right, ""},
        {"", vc_trim_flag_left | vc_trim_flag_right, ""},
        {"ab", vc_trim_flag_left | vc_trim_flag_right, "ab"},
        {"\xA0 a \x85", vc_trim_flag_left | vc_trim_flag_right, "\xA0 a \x85"},
    };
    for (const auto &c : cases) {
        text_slot slot(c.text);
        EXPECT_EQ(vc_trim_ex(slot.text, c.flags), 1);
        EXPECT_EQ(slot.str(), c.want) << '[' << c.text << "] with " << c.flags;
    }
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(vc_strings, trim_ex_refuses_flags_with_neither_bit) {
    text_slot slot(" a ");
    EXPECT_EQ(vc_trim_ex(slot.text, 0), 0);
    EXPECT_EQ(vc_trim_ex(slot.text, 4), 0);
    EXPECT_EQ(vc_trim_ex(nullptr, 3), 0);
    EXPECT_EQ(slot.str(), " a ");
    const std::string line = "E vc_trim_ex: " + einval;
    EXPECT_EQ(log.transcript(), (lines{line, line, line}));
}

TEST_F(vc_strings, trim_left_and_right) {
    text_slot slot(" \ta b\n ");
    EXPECT_EQ(vc_trim_right(slot.text), 1);
    EXPECT_EQ(slot.str(), " \ta b");
    EXPECT_EQ(memcmp(slot.text + 5, "\0\0", 3), 0) << "NULs over the white space";
    EXPECT_EQ(vc_trim_left(slot.text), 1);
    EXPECT_EQ(slot.str(), "a b");
    text_slot empty("");
    EXPECT_EQ(vc_trim_right(empty.text), 1);
    EXPECT_EQ(vc_trim_left(empty.text), 1);
    EXPECT_EQ(empty.str(), "");
    EXPECT_EQ(vc_trim_right(nullptr), 0);
    EXPECT_EQ(vc_trim_left(nullptr), 0);
    EXPECT_EQ(log.transcript(), (lines{"E vc_trim_right: " + einval, "E vc_trim_left: " + einval}));
}

// Operations that replace the slot's string

TEST_F(vc_strings, trim) {
    const struct {
        const char *text, *want;
        lines want_lines;
    } cases[] = {
        {"  a b  ", "a b", {"D vc_trim: parameter [  a b  ]", "D vc_trim: trimmed is [a b]"}},
        {"a", "a", {"D vc_trim: parameter [a]", "D vc_trim: trimmed is [a]"}},
        {"a ", "a", {"D vc_trim: parameter [a ]", "D vc_trim: trimmed is [a]"}},
        {"\r\n", "", {"D vc_trim: parameter [??]"}},
        {"   ", "", {"D vc_trim: parameter [   ]"}},
        {"", "", {"D vc_trim: parameter []"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string("[") + c.text + "]");
        text_slot slot(c.text);
        EXPECT_EQ(vc_trim(slot.slot()), 1);
        EXPECT_EQ(slot.str(), c.want);
        EXPECT_EQ(log.transcript(), c.want_lines);
    }
}

TEST_F(vc_strings, chomp) {
    const struct {
        const char *text, *want;
    } cases[] = {
        {"ab\ncd", "ab"}, {"ab\r\n", "ab"}, {"a\rb\n", "a"}, {"ab", "ab"}, {"\n", ""}, {"", ""},
    };
    for (const auto &c : cases) {
        text_slot slot(c.text);
        EXPECT_EQ(vc_chomp(slot.slot()), 1);
        EXPECT_EQ(slot.str(), c.want);
    }
    log.take();
    text_slot slot("x\ny");
    vc_chomp(slot.slot());
    EXPECT_EQ(log.transcript(),
              (lines{"D vc_chomp: parameter [x?y]", "D vc_chomp: converted to [x]"}));
}

TEST_F(vc_strings, simplify_whitespace) {
    const struct {
        const char *text, *want;
    } cases[] = {
        {"  a \t b  c ", "a b c"}, {"a\tb", "a\tb"}, {"a b", "a b"},
        {"a\t\tb", "a b"},         {"a", "a"},       {"a \n\nb c\td  \t e", "a b c\td e"},
    };
    for (const auto &c : cases) {
        text_slot slot(c.text);
        EXPECT_EQ(vc_simplify_whitespace(slot.slot()), 1);
        EXPECT_EQ(slot.str(), c.want);
    }
    log.take();
    text_slot slot(" a  b ");
    vc_simplify_whitespace(slot.slot());
    EXPECT_EQ(log.transcript(), (lines{
                                    "D vc_trim: parameter [ a  b ]",
                                    "D vc_trim: trimmed is [a  b]",
                                    "D vc_simplify_whitespace: simplified is [a b]",
                                }));
}

TEST_F(vc_strings, simplify_whitespace_of_nothing) {
    text_slot empty("");
    EXPECT_EQ(vc_simplify_whitespace(empty.slot()), 1);
    text_slot blank(" \t");
    EXPECT_EQ(vc_simplify_whitespace(blank.slot()), 1);
    EXPECT_EQ(blank.str(), "");
    EXPECT_EQ(log.transcript(), (lines{
                                    "D vc_trim: parameter []",
                                    "D vc_simplify_whitespace: empty string: nothing to simplify",
                                    "D vc_trim: parameter [ ?]",
                                    "D vc_simplify_whitespace: empty string: nothing to simplify",
                                }));
}

TEST_F(vc_strings, strip_whitespace) {
    const struct {
        const char *text, *want;
        lines want_lines;
    } cases[] = {
        {" a b\tc\r\n", "abc", {"D vc_strip_whitespace: stripped is [abc]"}},
        {"abc", "abc", {"D vc_strip_whitespace: stripped is [abc]"}},
        {" \t ", "", {"D vc_strip_whitespace: stripped is []"}},
        {"", "", {"D vc_strip_whitespace: no length to string... no point in going on"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string("[") + c.text + "]");
        text_slot slot(c.text);
        EXPECT_EQ(vc_strip_whitespace(slot.slot()), 1);
        EXPECT_EQ(slot.str(), c.want);
        EXPECT_EQ(log.transcript(), c.want_lines);
    }
}

TEST_F(vc_strings, strip_whitespace_keeps_a_string_without_any) {
    text_slot slot("abc");
    const char *const before = slot.text;
    vc_strip_whitespace(slot.slot());
    EXPECT_EQ(slot.text, before);
}

// vc_str_replace

TEST_F(vc_strings, replace_that_grows) {
    const struct {
        const char *text, *pattern, *replacement, *want;
        int want_count;
    } cases[] = {
        {"axbxc", "x", "yy", "ayybyyc", 2},
        {"xx", "x", "xx", "xxxx", 2},
        {"aaa", "aa", "bbb", "bbba", 1},
        {"abc", "x", "yy", "abc", 0},
        {"", "x", "yy", "", 0},
        {"XxX", "x", "yy", "XyyX", 1},
        {"xxxxxxxxxxxxxxxxxxxx", "x", "ab", "abababababababababababababababababababab", 20},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        text_slot slot(c.text);
        EXPECT_EQ(vc_str_replace(slot.slot(), c.pattern, c.replacement), 1);
        EXPECT_EQ(slot.str(), c.want);
        EXPECT_EQ(log.transcript(), (lines{"D vc_str_replace: Detected " +
                                           std::to_string(c.want_count) + " patterns to replace"}));
    }
}

TEST_F(vc_strings, replace_by_the_same) {
    text_slot slot("cabc");
    EXPECT_EQ(vc_str_replace(slot.slot(), "ab", "ab"), 1);
    EXPECT_EQ(slot.str(), "cabc");
    EXPECT_EQ(log.transcript(),
              (lines{"D vc_str_replace: search and replace patterns are the same: nothing to do "
                     "[cabc]"}));
}

TEST_F(vc_strings, replace_that_does_not_grow) {
    text_slot slot("xabx");
    EXPECT_EQ(vc_str_replace(slot.slot(), "ab", "Z"), 1);
    EXPECT_EQ(slot.str(), "xZx");
    EXPECT_EQ(log.transcript(),
              (lines{
                  "D vc_str_replace: calling vc_str_replace_smaller for improved performance",
                  "D vc_str_replace_smaller_ex: replacing [ab] with [Z] in [xabx]",
                  "D vc_str_replace_smaller_ex: pattern ab not found - nothing to replace",
              }));
    EXPECT_EQ(vc_str_replace(slot.slot(), "z", "y"), 1);
    EXPECT_EQ(slot.str(), "xZx") << "with regard to case";
}

TEST_F(vc_strings, replace_refuses) {
    text_slot slot("abc");
    text_slot none;
    EXPECT_EQ(vc_str_replace(nullptr, "a", "b"), 0);
    EXPECT_EQ(vc_str_replace(none.slot(), "a", "b"), 0);
    EXPECT_EQ(vc_str_replace(slot.slot(), nullptr, "b"), 0);
    EXPECT_EQ(vc_str_replace(slot.slot(), "", "b"), 0);
    EXPECT_EQ(vc_str_replace(slot.slot(), "a", nullptr), 0);
    EXPECT_EQ(slot.str(), "abc");
    EXPECT_EQ(log.transcript(), lines(5, "E vc_str_replace: " + einval));
}

// vc_str_replace_within

// Every text of up to six letters "a" and "b", with replacements that grow, shrink and stay.
TEST_F(vc_strings, replace_within_a_limit_it_is_the_same_cut) {
    for (unsigned bits = 1; bits < 128; ++bits) { // the highest one ends the text
        std::string text;
        for (unsigned rest = bits; rest > 1; rest >>= 1) {
            text += rest & 1 ? 'a' : 'b';
        }
        for (const char *replacement : {"", "b", "a", "ba", "abb", "aaaa"}) {
            text_slot whole(text);
            ASSERT_EQ(vc_str_replace(whole.slot(), "a", replacement), 1);
            for (size_t limit = 0; limit < 30; ++limit) {
                text_slot slot(text);
                ASSERT_EQ(vc_str_replace_within(slot.slot(), "a", replacement, limit), 1);
                EXPECT_EQ(slot.str(), whole.str().substr(0, limit))
                    << text << " " << replacement << " " << limit;
            }
        }
        log.take();
    }
}

TEST_F(vc_strings, replace_within_a_limit_it_reports_in_the_same_name) {
    text_slot slot("abc");
    EXPECT_EQ(vc_str_replace_within(slot.slot(), "", "b", 1), 0);
    EXPECT_EQ(vc_str_replace_within(slot.slot(), "b", "xyz", 3), 1);
    EXPECT_EQ(log.transcript(), (lines{"E vc_str_replace: " + einval,
                                       "D vc_str_replace: Detected 1 patterns to replace"}));
    EXPECT_EQ(slot.str(), "axy");
}

// vc_str_replace_smaller_ex

TEST_F(vc_strings, replace_smaller) {
    const struct {
        const char *text, *pattern, *replacement;
        int case_sensitive;
        const char *want;
    } cases[] = {
        {"xabx", "AB", "Z", 0, "xZx"},
        {"xabx", "AB", "Z", 1, "xabx"},
        {"xABxab", "AB", "Z", 1, "xZxab"},
        {"aaaa", "aa", "a", 1, "a"}, // kept on purpose: searched again from the replacement on
        {"aabb", "ab", "", 1, "ab"}, // what forms before the match is not searched again
        {"abababc", "ab", "", 1, "c"},
        {"abab", "ab", "ba", 1, "baba"},
        {"aXbx", "x", "y", 0, "ayby"},
        {"abcabc", "abc", "ab", 1, "abab"},
        {"abcc", "abc", "ab", 1, "ab"},
        {"abc", "abcd", "x", 1, "abc"},
        {"abc", "abc", "", 1, ""},
        {"", "abc", "", 1, ""},
        {"\xC4", "\xE4", "x", 0, "\xC4"}, // only ASCII letters have two cases
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.text) + ": " + c.pattern + " by " + c.replacement);
        text_slot slot(c.text);
        EXPECT_EQ(vc_str_replace_smaller_ex(slot.text, c.pattern, c.replacement, c.case_sensitive),
                  1);
        EXPECT_EQ(slot.str(), c.want);
    }
}

TEST_F(vc_strings, replace_smaller_lines) {
    text_slot slot("xabx");
    EXPECT_EQ(vc_str_replace_smaller_ex(slot.text, "AB", "Z", 0), 1);
    EXPECT_EQ(log.transcript(),
              (lines{
                  "D vc_str_replace_smaller_ex: replacing [AB] with [Z] in [xabx]",
                  "D vc_str_replace_smaller_ex: pattern AB not found - nothing to replace",
              }));
    text_slot empty("");
    EXPECT_EQ(vc_str_replace_smaller_ex(empty.text, "AB", "longer", 0), 1);
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(vc_strings, replace_smaller_refuses) {
    text_slot slot("abc");
    EXPECT_EQ(vc_str_replace_smaller_ex(nullptr, "a", "b", 1), 0);
    EXPECT_EQ(vc_str_replace_smaller_ex(slot.text, nullptr, "b", 1), 0);
    EXPECT_EQ(vc_str_replace_smaller_ex(slot.text, "", "", 1), 0);
    EXPECT_EQ(vc_str_replace_smaller_ex(slot.text, "a", nullptr, 1), 0);
    EXPECT_EQ(log.transcript(), lines(4, "E vc_str_replace_smaller_ex: " + einval));
    EXPECT_EQ(vc_str_replace_smaller_ex(slot.text, "a", "bb", 1), 0);
    EXPECT_EQ(slot.str(), "abc");
    EXPECT_EQ(log.transcript(),
              (lines{"E vc_str_replace_smaller_ex: Pattern [a] is shorter than it's replacement "
                     "[bb]. Use vc_str_replace() instead!"}));
}

TEST_F(vc_strings, replace_smaller_refuses_what_would_never_end) {
    const struct {
        const char *name, *text, *pattern, *replacement;
        int case_sensitive, want;
    } cases[] = {
        {"the same", "xab", "ab", "ab", 1, 0},
        {"the same but for case", "xab", "ab", "AB", 0, 0},
        {"the same but for case, nothing to replace", "xyz", "ab", "AB", 0, 1},
        {"the same, nothing to replace", "xyz", "ab", "ab", 1, 1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        text_slot slot(c.text);
        EXPECT_EQ(vc_str_replace_smaller_ex(slot.text, c.pattern, c.replacement, c.case_sensitive),
                  c.want);
        EXPECT_EQ(slot.str(), c.text);
        const lines got = log.transcript();
        ASSERT_EQ(got.size(), 2u);
        EXPECT_EQ(got[1], c.want ? "D vc_str_replace_smaller_ex: pattern ab not found - nothing to "
                                   "replace"
                                 : std::string("E vc_str_replace_smaller_ex: Replacement [") +
                                       c.replacement +
                                       "] matches pattern [ab]: replacing it would never end");
    }
    text_slot slot("xab");
    EXPECT_EQ(vc_str_replace_smaller_ex(slot.text, "ab", "AB", 1), 1);
    EXPECT_EQ(slot.str(), "xAB") << "with regard to case the two differ";
}

// Formatting

int with_list(char **slot, const char *format, ...) QF_PRINTF_LIKE(2, 3);
int with_list(char **slot, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = vc_vasprintf(slot, format, arguments);
    va_end(arguments);
    return length;
}

TEST_F(vc_strings, asprintf_formats_texts_of_any_length) {
    const std::string longer(5000, 'x');
    text_slot slot;
    EXPECT_EQ(vc_asprintf(slot.slot(), "%s-%d", longer.c_str(), 7), 5002);
    EXPECT_EQ(slot.str(), longer + "-7");
    text_slot other;
    EXPECT_EQ(with_list(other.slot(), "%s-%d", longer.c_str(), 7), 5002);
    EXPECT_EQ(other.str(), longer + "-7");
    text_slot empty;
    EXPECT_EQ(vc_asprintf(empty.slot(), "%s", ""), 0);
    EXPECT_EQ(empty.str(), "");
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(vc_strings, asprintf_does_not_free_what_the_slot_held) {
    text_slot old("old");
    char *slot = old.text;
    EXPECT_EQ(vc_asprintf(&slot, "<%s>", slot), 5);
    EXPECT_STREQ(slot, "<old>");
    EXPECT_EQ(old.str(), "old");
    free(slot);
}

TEST_F(vc_strings, asprintf_refuses_null) {
    const auto unchecked = &vc_asprintf;
    const auto unchecked_list = &with_list;
    const char *volatile no_text = nullptr;
    text_slot slot("kept");
    EXPECT_EQ(vc_asprintf(nullptr, "x"), -1);
    EXPECT_EQ(unchecked(slot.slot(), no_text), -1);
    EXPECT_EQ(with_list(nullptr, "x"), -1);
    EXPECT_EQ(unchecked_list(slot.slot(), no_text), -1);
    EXPECT_EQ(slot.str(), "kept");
    EXPECT_EQ(log.transcript(), (lines{"E vc_asprintf: " + einval, "E vc_asprintf: " + einval,
                                       "E vc_vasprintf: " + einval, "E vc_vasprintf: " + einval}));
}

int measured(const char *format, ...) QF_PRINTF_LIKE(1, 2);
int measured(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = platform::measure_text(format, arguments);
    va_end(arguments);
    return length;
}

// Half of a surrogate pair is no character; C libraries differ in whether they mind.
TEST_F(vc_strings, asprintf_of_what_can_not_be_formatted) {
    const wint_t half = 0xD800;
    const int want = measured("<%lc>", half);
    text_slot slot, listed;
    EXPECT_EQ(vc_asprintf(slot.slot(), "<%lc>", half), want);
    EXPECT_EQ(with_list(listed.slot(), "<%lc>", half), want);
    if (want < 0) {
        EXPECT_EQ(slot.text, nullptr);
        EXPECT_EQ(listed.text, nullptr);
        EXPECT_EQ(log.transcript(),
                  (lines{"E vc_asprintf: Failed to determine the necessary buffer size",
                         "E vc_vasprintf: Failed to determine the necessary buffer size"}));
    } else {
        EXPECT_EQ(slot.str().size(), static_cast<size_t>(want));
        EXPECT_EQ(log.transcript(), lines{});
    }
}

// "%n" changes the text of "%s" between measuring and writing.
TEST_F(vc_strings, asprintf_of_a_text_that_grows_meanwhile) {
    text_slot slot("kept");
    int number = 0;
    const char *const bytes_of_number = reinterpret_cast<const char *>(&number);
    EXPECT_EQ(vc_asprintf(slot.slot(), "ab%s%n", bytes_of_number, &number), -1);
    number = 0;
    EXPECT_EQ(with_list(slot.slot(), "ab%s%n", bytes_of_number, &number), -1);
    EXPECT_EQ(slot.str(), "kept");
    EXPECT_EQ(log.transcript(),
              (lines{"E vc_asprintf: Failed to completely write formatted string to buffer",
                     "E vc_vasprintf: Failed to completely write formatted string to buffer"}));
}

// vc_concatenate

TEST_F(vc_strings, concatenate_puts_three_texts_behind_each_other) {
    const struct {
        const char *first;
        const char *second;
        const char *third;
        const char *want;
    } cases[] = {
        {"c:/folder", "/", "file", "c:/folder/file"},
        {"", "", "name", "name"},
        {"a", "bc", "", "abc"},
        {"", "", "", ""},
    };
    for (const auto &c : cases) {
        text_slot made;
        made.text = vc_concatenate(c.first, c.second, c.third);
        EXPECT_EQ(made.str(), c.want);
    }
    EXPECT_EQ(log.transcript(), lines{});
}

// vc_strdup_till

TEST_F(vc_strings, strdup_till) {
    const struct {
        const char *text;
        char stop;
        const char *want;
        size_t want_end;
    } cases[] = {
        {"key=value", '=', "key", 3}, {"=value", '=', "", 0}, {"key=a=b", '=', "key", 3},
        {"key", '=', "key", 3},       {"", '=', "", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const char *end = nullptr;
        text_slot copy;
        copy.text = vc_strdup_till(c.text, &end, c.stop);
        EXPECT_EQ(copy.str(), c.want);
        EXPECT_EQ(end, c.text + c.want_end);
        text_slot without_end;
        without_end.text = vc_strdup_till(c.text, nullptr, c.stop);
        EXPECT_EQ(without_end.str(), c.want);
    }
    EXPECT_EQ(log.transcript(), lines{});
}

TEST_F(vc_strings, strdup_till_refuses) {
    const char *end = "untouched";
    EXPECT_EQ(vc_strdup_till("key", &end, '\0'), nullptr);
    EXPECT_EQ(vc_strdup_till(nullptr, &end, '='), nullptr);
    EXPECT_STREQ(end, "untouched");
    EXPECT_EQ(log.transcript(), lines(2, "E vc_strdup_till: " + einval));
}

// Null and failing memory, for every operation on a slot

TEST_F(vc_strings, null_arguments) {
    text_slot none, set("x");
    EXPECT_EQ(vc_strcat(nullptr, "x"), 0);
    EXPECT_EQ(vc_strcat(set.slot(), nullptr), 0);
    EXPECT_EQ(vc_ccat(nullptr, 'x'), 0);
    EXPECT_EQ(vc_ltoa(nullptr, 1), 0);
    EXPECT_EQ(vc_icat(nullptr, 1), 0);
    EXPECT_EQ(log.errors(),
              (lines{"vc_strcat: " + einval, "vc_strcat: " + einval, "vc_ccat: " + einval,
                     "vc_ltoa: " + einval, "vc_icat: " + einval}));
    const struct {
        const char *name;
        int (*operation)(char **);
    } operations[] = {
        {"vc_trim", vc_trim},
        {"vc_chomp", vc_chomp},
        {"vc_simplify_whitespace", vc_simplify_whitespace},
        {"vc_strip_whitespace", vc_strip_whitespace},
    };
    for (const auto &o : operations) {
        EXPECT_EQ(o.operation(nullptr), 0);
        EXPECT_EQ(o.operation(none.slot()), 0);
        EXPECT_EQ(log.transcript(), lines(2, std::string("E ") + o.name + ": " + einval));
    }
    EXPECT_EQ(set.str(), "x");
}

TEST_F(vc_strings, without_memory_the_slot_keeps_its_string) {
    const struct {
        const char *name, *line, *before, *after;
        int (*operation)(char **);
        unsigned want_allocations;
    } cases[] = {
        {"strcat", "vc_strcat", "ab", "ab", [](char **s) { return vc_strcat(s, "x"); }, 1},
        {"ccat", "vc_ccat", "ab", "ab", [](char **s) { return vc_ccat(s, 'x'); }, 1},
        {"ltoa", "vc_ltoa", "ab", "ab", [](char **s) { return vc_ltoa(s, 5); }, 1},
        {"trim: the right end is cut already", "vc_trim", " a ", " a", vc_trim, 1},
        {"trim of blanks", "vc_trim", "  ", "  ", vc_trim, 1},
        {"chomp", "vc_chomp", "a\nb", "a\nb", vc_chomp, 1},
        {"simplify", "vc_trim", "a  b", "a  b", vc_simplify_whitespace, 1},
        {"strip", "vc_strip_whitespace", "a b", "a b", vc_strip_whitespace, 1},
        {"replace", "vc_str_replace", "ab", "ab",
         [](char **s) { return vc_str_replace(s, "a", "xx"); }, 1},
        {"in place", "", "ab", "ab", [](char **s) { return vc_str_replace(s, "ab", "x"); }, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        char *text = nullptr;
        int result = -1;
        // Every run starts with the same string; a run that succeeds is undone by the next.
        const unsigned failed = [&] {
            for (unsigned n = 1;; ++n) {
                free(text);
                text = heap_text(c.before);
                failing_allocation failing(n);
                result = c.operation(&text);
                if (!failing.fired()) {
                    return n - 1;
                }
                EXPECT_EQ(result, 0) << "allocation " << n;
                EXPECT_STREQ(text, c.after) << "allocation " << n;
                EXPECT_EQ(log.errors(), (lines{std::string(c.line) + ": " + enomem}));
            }
        }();
        EXPECT_EQ(failed, c.want_allocations);
        EXPECT_EQ(result, 1);
        free(text);
    }
}

TEST_F(vc_strings, icat_without_memory) {
    for (unsigned n = 1; n <= 2; ++n) {
        text_slot slot("ab");
        int result;
        {
            failing_allocation failing(n);
            result = vc_icat(slot.slot(), 5);
        }
        EXPECT_EQ(result, 0);
        EXPECT_EQ(slot.str(), "ab");
        EXPECT_EQ(log.errors(), (lines{(n == 1 ? "vc_ltoa: " : "vc_strcat: ") + enomem}));
    }
}

TEST_F(vc_strings, new_strings_without_memory) {
    text_slot slot("kept");
    const char *end = "untouched";
    {
        failing_allocation failing(1);
        EXPECT_EQ(vc_asprintf(slot.slot(), "x"), -1);
    }
    {
        failing_allocation failing(1);
        EXPECT_EQ(with_list(slot.slot(), "x"), -1);
    }
    {
        failing_allocation failing(1);
        EXPECT_EQ(vc_strdup_till("a=b", &end, '='), nullptr);
    }
    EXPECT_EQ(slot.str(), "kept");
    EXPECT_STREQ(end, "untouched");
    EXPECT_EQ(log.transcript(), (lines{"E vc_asprintf: " + enomem, "E vc_vasprintf: " + enomem,
                                       "E vc_strdup_till: " + enomem}));
}

// The same on std::string, for random texts over few characters.

class vc_strings_model : public logged_test {
  protected:
    std::mt19937 random{20240611};

    std::string text(const std::string &alphabet, size_t longest) {
        std::string made(random() % (longest + 1), ' ');
        for (char &c : made) {
            c = alphabet[random() % alphabet.size()];
        }
        return made;
    }
};

const std::string spaces = " \t\n\v\f\r";

std::string trimmed(const std::string &text) {
    const size_t first = text.find_first_not_of(spaces);
    return first == std::string::npos
               ? ""
               : text.substr(first, text.find_last_not_of(spaces) - first + 1);
}

std::string simplified(const std::string &text) {
    std::string out;
    const std::string in = trimmed(text);
    for (size_t i = 0; i < in.size();) {
        size_t end = in.find_first_not_of(spaces, i);
        if (end - i > 1) {
            out += ' ';
            i = end;
        } else {
            out += in[i++];
        }
    }
    return out;
}

std::string stripped(std::string text) {
    std::erase_if(text, [](char c) { return spaces.find(c) != std::string::npos; });
    return text;
}

TEST_F(vc_strings_model, trimming) {
    for (int round = 0; round < 5000; ++round) {
        const std::string before = text("ab \t\n", 12);
        SCOPED_TRACE('[' + before + ']');
        text_slot trim(before), simplify(before), strip(before), chomp(before);
        vc_trim(trim.slot());
        ASSERT_EQ(trim.str(), trimmed(before));
        vc_simplify_whitespace(simplify.slot());
        ASSERT_EQ(simplify.str(), simplified(before));
        vc_strip_whitespace(strip.slot());
        ASSERT_EQ(strip.str(), stripped(before));
        vc_chomp(chomp.slot());
        ASSERT_EQ(chomp.str(), before.substr(0, before.find_first_of("\r\n")));
    }
}

TEST_F(vc_strings_model, trimming_in_place) {
    for (int round = 0; round < 5000; ++round) {
        const std::string before = text("ab \t\v", 12);
        SCOPED_TRACE('[' + before + ']');
        const size_t first = std::min(before.find_first_not_of(spaces), before.size());
        const std::string left = before.substr(first);
        const std::string right = before.substr(0, before.find_last_not_of(spaces) + 1);
        text_slot left_trimmed(before), right_trimmed(before);
        vc_trim_left(left_trimmed.text);
        ASSERT_EQ(left_trimmed.str(), left);
        vc_trim_right(right_trimmed.text);
        ASSERT_EQ(right_trimmed.str(), right);
        const std::string wants[] = {left, right, trimmed(before)};
        for (const int flags : {1, 2, 3}) {
            text_slot slot(before);
            vc_trim_ex(slot.text, flags);
            ASSERT_EQ(slot.str(), wants[flags - 1]) << flags;
        }
    }
}

TEST_F(vc_strings_model, cutting_at_a_character) {
    for (int round = 0; round < 5000; ++round) {
        const std::string before = text("ab=\x80", 10);
        const char stop = "=\x80z"[random() % 3];
        SCOPED_TRACE(before + " at " + stop);
        const size_t length = std::min(before.find(stop), before.size());
        const char *end = nullptr;
        text_slot copy;
        copy.text = vc_strdup_till(before.c_str(), &end, stop);
        ASSERT_EQ(copy.str(), before.substr(0, length));
        ASSERT_EQ(end, before.c_str() + length);
    }
}

TEST_F(vc_strings_model, appending) {
    std::string model;
    text_slot slot("");
    for (int round = 0; round < 500; ++round) {
        const auto number = static_cast<int32_t>(random());
        const std::string piece = text("abc", 5);
        vc_strcat(slot.slot(), piece.c_str());
        vc_ccat(slot.slot(), 'x');
        vc_icat(slot.slot(), number);
        model += piece + 'x' + std::to_string(number);
        ASSERT_EQ(slot.str(), model);
    }
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return text;
}

std::string uppered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    return text;
}

TEST_F(vc_strings_model, letters) {
    for (int round = 0; round < 5000; ++round) {
        const std::string before = text("aAzZ@[`{m9\xC4\xE4\xFF", 12);
        text_slot low(before), up(before);
        vc_lower(low.text);
        ASSERT_EQ(low.str(), lowered(before)) << before;
        vc_upper(up.text);
        ASSERT_EQ(up.str(), uppered(before)) << before;
    }
}

// One replacement after the other, each searched from the last one's first character.
std::string replaced_again(std::string text, const std::string &pattern,
                           const std::string &replacement, bool case_sensitive) {
    for (size_t at = 0;; text.replace(at, pattern.size(), replacement)) {
        at = case_sensitive ? text.find(pattern, at) : lowered(text).find(lowered(pattern), at);
        if (at == std::string::npos) {
            return text;
        }
    }
}

std::string replaced_once(const std::string &text, const std::string &pattern,
                          const std::string &replacement) {
    std::string out;
    size_t from = 0;
    for (size_t at; (at = text.find(pattern, from)) != std::string::npos;
         from = at + pattern.size()) {
        out += text.substr(from, at - from) + replacement;
    }
    return out + text.substr(from);
}

TEST_F(vc_strings_model, replacing) {
    for (int round = 0; round < 20000; ++round) {
        const std::string before = text("aAb", 14);
        const std::string pattern = "abA"[random() % 3] + text("aAb", 2);
        const std::string replacement = text("aAb", 4);
        SCOPED_TRACE(before + ": " + pattern + " by " + replacement);
        text_slot slot(before);
        ASSERT_EQ(vc_str_replace(slot.slot(), pattern.c_str(), replacement.c_str()), 1);
        ASSERT_EQ(slot.str(),
                  replacement.size() > pattern.size() ? replaced_once(before, pattern, replacement)
                  : pattern == replacement            ? before
                                           : replaced_again(before, pattern, replacement, true));
        const bool case_sensitive = random() % 2;
        const bool endless =
            case_sensitive ? pattern == replacement : lowered(pattern) == lowered(replacement);
        if (replacement.size() <= pattern.size() && !endless) {
            text_slot in_place(before);
            ASSERT_EQ(vc_str_replace_smaller_ex(in_place.text, pattern.c_str(), replacement.c_str(),
                                                case_sensitive),
                      1);
            ASSERT_EQ(in_place.str(), replaced_again(before, pattern, replacement, case_sensitive))
                << (case_sensitive ? "with" : "without") << " regard to case";
        }
    }
}

} // namespace
} // namespace quillfence::testing
