// What the warnings about patterns claim, asked of the slow matcher.
#include "pattern_warnings.h"

#include <fstream>
#include <random>
#include <regex>

#include <gtest/gtest.h>

#include "slow_matcher.h"

namespace quillfence::data_files {
namespace {

using texts = std::vector<std::string>;

bool matches(const std::string &pattern, const std::string &name) {
    const std::optional<testing::slow_nodes> nodes = testing::slow_parse(pattern);
    EXPECT_TRUE(nodes) << pattern;
    return nodes && testing::slow_match(*nodes, name, true).matched;
}

std::string only_warning(const std::string &pattern) {
    const texts said = warnings_about(pattern);
    return said.size() == 1 ? said[0] : ::testing::PrintToString(said);
}

bool warns(const std::string &pattern, const std::string &of) {
    for (const std::string &said : warnings_about(pattern)) {
        if (said.find(of) != std::string::npos) {
            return true;
        }
    }
    return false;
}

// What a warning tells to write; "" where it names no pattern.
std::string advised(const std::string &said) {
    const std::string mark = "; write ";
    const size_t at = said.rfind(mark);
    return at == std::string::npos ? "" : said.substr(at + mark.size());
}

// All texts over some letters, up to a length.
texts names_over(const std::string &letters, size_t length) {
    texts names = {""};
    for (size_t from = 0; length > 0; --length) {
        const size_t to = names.size();
        for (; from < to; ++from) {
            for (const char c : letters) {
                names.push_back(names[from] + c);
            }
        }
    }
    return names;
}

// What a library that tries every way says; nothing of a pattern that it refuses.
std::optional<bool> matches_elsewhere(const std::string &pattern, const std::string &name) {
    try {
        return std::regex_search(name, std::regex(pattern));
    } catch (const std::regex_error &) {
        return std::nullopt;
    }
}

TEST(pattern_warnings, what_they_say) {
    const struct {
        const char *pattern, *want;
        const char *match; // which the advised pattern matches, and the pattern does not
    } cases[] = {
        {"foo|bar",
         "the bar stands outside parentheses: part 1 matches nothing, part 2 matches at the "
         "beginning of a name only; write (foo|bar)",
         "afoo"},
        {"^a|b$",
         "the bar stands outside parentheses: part 1 matches a whole name only, part 2 matches at "
         "the beginning of a name only; write (^a|b$)",
         "ax"},
        {"a|b[.-_]", "[\"the bar\"]", nullptr},
        {"^(.*b)$",
         "the pattern matches nothing: a .* inside parentheses needs a $ behind it there; write "
         "^.*b$",
         "ab"},
        {"^(.*)\\.example$", "the pattern matches nothing; write ^.*\\.example$", "a.example"},
        {"^(.*b|c)$",
         "a part of the pattern matches nothing: a .* inside parentheses needs a $ behind it "
         "there; "
         "write the .* outside the parentheses",
         nullptr},
        {"a\\$",
         "the pattern matches nothing: as it ends in $, nothing is put behind the \\$; write "
         "a\\$.*$",
         "ba$b"},
        {"a$b", "the pattern matches nothing", nullptr},
        {"^(a[0-9]*-)x$",
         "a * takes nothing here, as what stands behind it has no end: the pattern matches only "
         "where there is nothing to repeat; write ^(a([0-9]+)?-)x$",
         "a12-x"},
        {"^(x|a*)b$",
         "a * takes nothing here, as what stands behind it has no end: the pattern matches only "
         "where there is nothing to repeat; write ^(x|(a+)?)b$",
         "aab"},
        {"a[.-_]b",
         "the range .-_ holds no letter, since case does not count; \\- is the character -; write "
         "a[.\\-_]b",
         "a-b"},
        {"[0-9.[a-z]-x",
         "[0-9.[a-z] is one class that holds the character [; write ] in front of the [, or \\[ "
         "for "
         "the character",
         nullptr},
        {"^[[:alpha:]]+$",
         "[[:alpha:] is one class that holds [ and the characters behind it: there are no named "
         "classes; write ^[\\a]+$",
         "zB"},
        {"^[0-9]++$", "the second + in ++ is the character +; write ^[0-9]+$", "12"},
        {"^a{2}?$", "the second ? in {2}? is the character ?; write ^a{2}$", "aa"},
        {"^a.*?b$", ".*? is a .* that takes all the rest, or nothing at all; write ^a.*b$", "axb"},
        {"\\Afoo", "\\A is a character that is no letter, not the beginning; write ^foo", "foo"},
        {"foo\\Z", "\\Z is the letter Z, not the end; write foo$", "foo"},
        {"^(dsl|dsl-pool)-[0-9]+$",
         "the name dsl-pool-0 is not matched, as a bar keeps the first part that matches: the "
         "longest belongs in front; write ^(dsl-pool|dsl)-[0-9]+$",
         "dsl-pool-0"},
        {"(dyn|dynamic)[.-]",
         "the name dynamic- is not matched, as a bar keeps the first part that matches: the "
         "longest belongs in front; write (dynamic|dyn)[.-]",
         "dynamic-"},
        {"^([a-z]{1,3}c)x$",
         "the name ccx is not matched, as {1,3} inside parentheses takes all there is and gives "
         "nothing back; write ^[a-z]{1,3}cx$",
         "ccx"},
        {"^cab-([0-9]{1,2}){2}\\.net$",
         "the name cab-00.net is not matched, as {1,2} inside parentheses takes all there is and "
         "gives nothing back",
         nullptr},
        {"^a.*x?$", "the name a is not matched, though the parts of the pattern would take it",
         nullptr},
        {"^h[a]x$", "a letter that [a] lists singly is taken in that case only; write ^h[a-a]x$",
         "hAx"},
        {"[^0-9a\\-d-f]x$",
         "a letter that [^0-9a\\-d-f] lists singly is taken in that case only; write "
         "[^0-9a-a\\-d-f]x$",
         nullptr},
        {"^\\x41$",
         "\\x is a hexadecimal digit, not the character of the code behind it; write ^A$", "A"},
        {"a\\x2Eb$",
         "\\x is a hexadecimal digit, not the character of the code behind it; write a\\.b$",
         "a.b"},
        {"a\\x0ab$", "\\x is a hexadecimal digit, not the character of the code behind it",
         nullptr},
        {"^\\ldsl", "\\l is a lower-case letter (if that is meant, write [\\l]); write ^ldsl",
         "LDSL"},
        {"^(a)\\1$", "\\1 is the character 1: there are no references to groups", nullptr},
    };
    for (const auto &c : cases) {
        if (std::string(c.want).starts_with("[\"the bar")) {
            const texts both = warnings_about(c.pattern);
            ASSERT_EQ(both.size(), 2u) << c.pattern;
            EXPECT_NE(both[0].find("; put them around it"), std::string::npos)
                << "no pattern is advised that has a warning itself: " << both[0];
            continue;
        }
        const std::string said = only_warning(c.pattern);
        EXPECT_EQ(said, c.want) << c.pattern;
        if (c.match) {
            EXPECT_EQ(warnings_about(advised(said)), texts{}) << said;
            EXPECT_TRUE(matches(advised(said), c.match)) << said;
            EXPECT_FALSE(matches(c.pattern, c.match)) << said;
        }
    }
}

TEST(pattern_warnings, nothing_is_said_of_what_does_what_it_says) {
    for (const char *pattern : {"foo",
                                "(foo|bar)",
                                "^a$|^b$",
                                "^a.*|^b",
                                ".*a$|.*b",
                                "^.*b$",
                                "^(dsl.*)$",
                                "^(.*b$)",
                                "^(a[0-9]*)$",
                                "^a[0-9]*-x$",
                                "([0-9]+\\.)*x$",
                                "[a-z0-9._-]",
                                "[A-z]",
                                "[0-Z]",
                                "[ -~]",
                                "[+-.]",
                                "[[]",
                                "[^[]",
                                "[\\[a-z]",
                                "[aA]",
                                "[a-a]",
                                "[a-zb]",
                                "[\\aB]x",
                                "^[\\l]dsl",
                                "^\\l+-",
                                "\\x\\x-",
                                "[\\x]41",
                                "^(dsl-pool|dsl)-[0-9]+$",
                                "(foo|foobar)",
                                "^([0-9]{1,3}-){2}x$",
                                "^([12]?[0-9]{1,2}\\.){4}x$",
                                "a\\++",
                                "a+\\+",
                                "\\A",
                                "[\\1]",
                                "",
                                ".*",
                                "$",
                                "^"}) {
        const bool letter = std::string(pattern) == "\\A";
        EXPECT_EQ(warnings_about(pattern).size(), letter ? 1u : 0u)
            << pattern << ": " << ::testing::PrintToString(warnings_about(pattern));
    }
    EXPECT_EQ(warnings_about("("), texts{});
    EXPECT_EQ(warnings_about("^(.*b)a{3,2}$"), texts{}) << "which is warned of otherwise";
}

// --- Claims ---

class generator {
  public:
    size_t roll(size_t sides) {
        return std::uniform_int_distribution<size_t>(0, sides - 1)(dice_);
    }
    std::string element() {
        static const texts atoms = {"a", "b", ".*", ".", "[ab]", "a", "b", "-", "^", "$"};
        static const texts times = {"", "", "", "", "+", "*", "?", "{1,2}"};
        return atoms[roll(atoms.size())] + times[roll(times.size())];
    }
    std::string sequence() {
        std::string text;
        for (size_t n = 1 + roll(3); n > 0; --n) {
            text += roll(4) == 0
                        ? "(" + element() + element() + (roll(3) ? "" : "|" + element()) + ")"
                        : element();
        }
        return text;
    }
    std::string letters() {
        static const texts atoms = {"a", "b", "-", "[a-b]", "ab"};
        std::string text;
        for (size_t n = 1 + roll(2); n > 0; --n) {
            text += atoms[roll(atoms.size())];
        }
        return text;
    }

  private:
    std::mt19937 dice_{7};
};

bool says_nothing_matches(const std::string &pattern) {
    const texts said = warnings_about(pattern);
    return !said.empty() && said[0].starts_with("the pattern matches nothing");
}

TEST(pattern_warnings, what_matches_nothing_matches_nothing) {
    generator random;
    const texts names = names_over("ab-", 4);
    size_t warned = 0;
    for (int round = 0; round < 3000; ++round) {
        const std::string pattern = (random.roll(2) ? "^" : "") + random.sequence() + "$";
        if (!testing::slow_parse(pattern) || !says_nothing_matches(pattern)) {
            continue;
        }
        ++warned;
        for (const std::string &name : names) {
            ASSERT_FALSE(matches(pattern, name)) << pattern << " on " << name;
        }
    }
    EXPECT_GT(warned, 100u);
}

TEST(pattern_warnings, parts_between_bars_match_what_is_claimed) {
    generator random;
    const texts names = names_over("ab-", 4);
    for (int round = 0; round < 100; ++round) {
        const std::string one = random.letters();
        const std::string other = random.letters();
        const std::string third = random.letters();
        const std::string said = only_warning(one + "|" + other + "|" + third);
        ASSERT_TRUE(said.starts_with("the bar stands outside parentheses: part 1 matches nothing, "
                                     "part 2 matches a whole name only, part 3 matches at the "
                                     "beginning of a name only; write ("))
            << said;
        ASSERT_TRUE(warns("^" + one + "|" + other,
                          "part 1 matches a whole name only, part 2 matches "
                          "at the beginning of a name only"));
        for (const std::string &name : names) {
            // The second part has the first word, as long as it matches at all.
            const bool claimed = matches("^" + other + "$", name) || matches("^" + third, name);
            if (matches(one + "|" + other + "|" + third, name)) {
                ASSERT_TRUE(claimed) << said << " on " << name;
            }
            ASSERT_EQ(matches(advised(said), name),
                      matches(one, name) || matches(other, name) || matches(third, name))
                << said << " on " << name;
            if (matches("^" + one + "|" + other, name)) {
                ASSERT_TRUE(matches("^" + one + "$", name) || matches("^" + other, name)) << name;
            }
        }
    }
}

TEST(pattern_warnings, stars_that_take_nothing) {
    generator random;
    const texts names = names_over("ab-", 5);
    size_t advice = 0;
    for (int round = 0; round < 60; ++round) {
        const std::string before = random.letters();
        const std::string repeated = random.roll(2) ? "a" : "[a-b]";
        const std::string behind = random.letters();
        const std::string rest = random.letters();
        const std::string pattern = "^(" + before + repeated + "*" + behind + ")" + rest + "$";
        const std::string said = only_warning(pattern);
        ASSERT_TRUE(said.starts_with("a * takes nothing here")) << said;
        const bool has_advice = advised(said) != "+ in its place";
        advice += has_advice;
        ASSERT_TRUE(!has_advice || warnings_about(advised(said)).empty()) << said;
        for (const std::string &name : names) {
            if (matches(pattern, name)) {
                ASSERT_TRUE(matches("^(" + before + behind + ")" + rest + "$", name)) << pattern;
            }
            if (has_advice) {
                ASSERT_EQ(matches(advised(said), name), matches_elsewhere(pattern, name))
                    << said << " on " << name;
            }
        }
    }
    EXPECT_GT(advice, 10u);
}

// What the parts would take is asked of a library that tries every way.
TEST(pattern_warnings, names_that_are_said_to_be_lost_are_lost) {
    generator random;
    const std::string mark = "the name ";
    size_t warned = 0;
    size_t advice = 0;
    for (int round = 0; round < 3000; ++round) {
        const std::string pattern = "^" + random.sequence() + "$";
        for (const std::string &said : warnings_about(pattern)) {
            if (!said.starts_with(mark)) {
                continue;
            }
            const std::string name =
                said.substr(mark.size(), said.find(' ', mark.size()) - mark.size());
            const std::string instead = advised(said);
            ++warned;
            advice += !instead.empty();
            ASSERT_FALSE(matches(pattern, name)) << said << " of " << pattern;
            ASSERT_NE(matches_elsewhere(pattern, name), false) << said << " of " << pattern;
            ASSERT_TRUE(instead.empty() || matches(instead, name)) << said << " of " << pattern;
        }
    }
    EXPECT_GT(warned, 100u);
    EXPECT_GT(advice, 10u);
}

// Of the page's rows, those of patterns that match less than elsewhere.
TEST(pattern_warnings, what_the_page_says_to_match_less_is_warned_of) {
    std::ifstream page(QF_FORMAT_PAGE);
    ASSERT_TRUE(page.is_open());
    size_t rows = 0;
    for (std::string line; std::getline(page, line);) {
        const size_t end = line.find("` | `");
        if (!line.starts_with("| `") || end == std::string::npos ||
            line.find(" | no | match | ") == std::string::npos) {
            continue;
        }
        std::string pattern = line.substr(3, end - 3);
        for (size_t at; (at = pattern.find("\\|")) != std::string::npos;) {
            pattern.erase(at, 1);
        }
        ++rows;
        EXPECT_FALSE(warnings_about(pattern).empty()) << pattern;
    }
    EXPECT_GT(rows, 15u);
}

TEST(pattern_warnings, every_range_holds_the_letters_that_are_claimed) {
    size_t warned = 0;
    for (char low = ' '; low < '~'; ++low) {
        for (char high = low; high <= '~'; ++high) {
            const auto bound = [](char c) {
                return std::string("\\]^-[").find(c) == std::string::npos ? std::string{c}
                                                                          : std::string{'\\', c};
            };
            if (low == high) {
                continue;
            }
            const std::string pattern = "^[" + bound(low) + "-" + bound(high) + "]$";
            const std::optional<testing::slow_nodes> nodes = testing::slow_parse(pattern);
            ASSERT_TRUE(nodes) << pattern;
            std::string letters;
            bool lacks = false;
            bool any = false;
            for (char c = ' '; c <= '~'; ++c) {
                const bool taken = testing::slow_match(*nodes, {c}, true).matched;
                any = any || taken;
                if (c >= 'a' && c <= 'z' && taken) {
                    letters += c;
                }
                lacks = lacks || (std::isalpha(c) && c >= low && c <= high && !taken);
            }
            const std::string range = {low, '-', high};
            const std::string claim = !lacks ? ""
                                      : !any ? "the range " + range + " holds nothing,"
                                      : letters.empty()
                                          ? "the range " + range + " holds no letter,"
                                          : "the range " + range + " holds of the letters only " +
                                                letters.front() + " to " + letters.back() + ",";
            const texts said = warnings_about(pattern);
            if (!lacks) {
                ASSERT_EQ(said, texts{}) << pattern;
                continue;
            }
            ++warned;
            ASSERT_TRUE(warns(pattern, claim)) << pattern << ::testing::PrintToString(said);
            const std::string instead = advised(said.back());
            for (char c = ' '; c <= '~'; ++c) {
                const bool listed = std::tolower(c) == std::tolower(low) ||
                                    std::tolower(c) == std::tolower(high) || c == '-';
                ASSERT_EQ(matches(instead, {c}), listed) << said.back() << " on " << c;
            }
        }
    }
    EXPECT_GT(warned, 300u);
}

TEST(pattern_warnings, brackets_in_classes_are_characters) {
    for (const char *of : {"[a[]", "[0-9[a-z]", "[[0-9]", "[[:digit:]", "[^]a[]", "[\\][]"}) {
        if (!testing::slow_parse(of)) {
            continue;
        }
        const std::string pattern = std::string("^") + of + "$";
        EXPECT_TRUE(warns(pattern, " is one class that holds ")) << of;
        EXPECT_TRUE(matches(pattern, "[")) << of;
    }
    for (const char *named : {"[:alpha:]", "[:digit:]", "[:alnum:]", "[:lower:]", "[:upper:]",
                              "[:space:]", "[:punct:]", "[:xdigit:]"}) {
        const std::string said = only_warning(std::string("^[") + named + "-]$");
        const std::string name = named;
        for (int code = 1; code < 127; ++code) {
            const bool letter = std::isalpha(code);
            const bool want = name == "[:alpha:]" || name == "[:lower:]" || name == "[:upper:]"
                                  ? letter
                              : name == "[:digit:]" ? std::isdigit(code)
                              : name == "[:alnum:]" ? std::isalnum(code)
                              : name == "[:space:]" ? std::isspace(code)
                              : name == "[:punct:]" ? std::ispunct(code)
                                                    : std::isxdigit(code);
            ASSERT_EQ(matches(advised(said), std::string(1, static_cast<char>(code))),
                      want || code == '-')
                << said << " on " << code;
        }
    }
}

TEST(pattern_warnings, a_second_repetition_is_a_character) {
    const texts names = names_over("a+*?b", 4);
    for (const char *first : {"+", "?", "*", "{2}", "{1,2}"}) {
        for (const char second : {'+', '*', '?'}) {
            const std::string pattern = std::string("^a") + first + second + "b$";
            ASSERT_TRUE(warns(pattern, std::string(" is the character ") + second)) << pattern;
            for (const std::string &name : names) {
                ASSERT_EQ(matches(pattern, name),
                          matches(std::string("^a") + first + "\\" + second + "b$", name))
                    << pattern << " on " << name;
            }
        }
    }
    for (const std::string &name : names) { // nothing can follow all the rest
        ASSERT_EQ(matches("^a.*?b$", name), matches("^ab$", name)) << name;
    }
}

} // namespace
} // namespace quillfence::data_files
