#include "tiny_rex.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "failing_memory.h"
#include "log_capture.h"
#include "vc_text.h"

namespace quillfence {
namespace {

using testing::failing_allocation;
using testing::lines;
using testing::logged_test;
using testing::sweep_allocations;

trex_ptr compiled(const std::string &pattern, uint8_t case_flag = trex_exact_case) {
    return trex_ptr(trex_compile_ex(pattern.c_str(), case_flag));
}

class tiny_rex : public logged_test {};

// --- Compiling ---

TEST_F(tiny_rex, a_null_pattern_is_refused) {
    EXPECT_EQ(trex_compile_ex(nullptr, 0), nullptr);
    EXPECT_EQ(log.errors(), lines{"trex_compile_ex: Invalid argument: [NULL]"});
}

TEST_F(tiny_rex, lines_carry_the_module_name) {
    EXPECT_EQ(trex_compile_ex("[]", 0), nullptr);
    const auto taken = log.take();
    ASSERT_EQ(taken.size(), 1u);
    EXPECT_EQ(taken[0].source, "tiny_rex");
}

TEST_F(tiny_rex, every_mistake_in_a_pattern_has_one_line) {
    static const struct {
        const char *pattern, *line;
    } cases[] = {
        {"a)b", "trex_compile_ex: Unexpected character ) after processing"},
        {")", "trex_compile_ex: Unexpected character ) after processing"},
        {"^)$", "trex_compile_ex: Unexpected character ) after processing"},
        {"(a))", "trex_compile_ex: Unexpected character ) after processing"},
        {"(|a)", "__trex_list: OR operator must have value in 'left'"},
        {"(|)", "__trex_list: OR operator must have value in 'left'"},
        {"a||b", "__trex_list: OR operator must have value in 'left'"},
        {"(a|)", "__trex_list: OR operator must have value in 'right'"},
        {"(a|b|)", "__trex_list: OR operator must have value in 'right'"},
        {"(?:a|)", "__trex_list: OR operator must have value in 'right'"},
        {"|)", "__trex_list: OR operator must have value in 'right'"},
        {"()", "__trex_element: failed to parse through sub expression"},
        {"(?:)", "__trex_element: failed to parse through sub expression"},
        {"a(b()c)", "__trex_element: failed to parse through sub expression"},
        {"(?a)", "__trex_element: failed to find expected character [:]"},
        {"(?", "__trex_element: failed to find expected character [:]"},
        {"(", "__trex_element: failed to find expected character [)]"},
        {"(a", "__trex_element: failed to find expected character [)]"},
        {"((a)", "__trex_element: failed to find expected character [)]"},
        {"[", "__trex_element: failed to find expected character []]"},
        {"[ab", "__trex_element: failed to find expected character []]"},
        {"[^a$", "__trex_element: failed to find expected character []]"},
        {"[a\\]", "__trex_element: failed to find expected character []]"},
        {"[]", "__trex_class: empty class match segment"},
        {"[]a]", "__trex_class: empty class match segment"},
        {"[^]", "__trex_class: empty class match segment"},
        {"[z-a]", "__trex_class: invalid range [z-a]"},
        {"[b\\z-ac]", "__trex_class: invalid range [\\z-a]"},
        {"[0-9b-\\a]", "__trex_class: invalid range [b-\\a]"},
        {"[a--]", "__trex_class: invalid range [a--]"},
        {"[a-", "__trex_class: invalid range [a-.]"},
        {"\x01", "__trex_charnode: non-printable character 1 found"},
        {"a\tb", "__trex_charnode: non-printable character 9 found"},
        {"\x7f", "__trex_charnode: non-printable character 127 found"},
        {"\x80", "__trex_charnode: non-printable character 128 found"},
        {"caf\xe9", "__trex_charnode: non-printable character 233 found"},
        {"[\x1f]", "__trex_charnode: non-printable character 31 found"},
        {"[a-\xff]", "__trex_class: non-printable character 255 found"},
        {"\\\x80", "__trex_escapechar: non-printable character 128 found"},
        {"a\\\x7f", "__trex_escapechar: non-printable character 127 found"},
        {"[\\\xe9]", "__trex_escapechar: non-printable character 233 found"},
        {"[a-\\\xff]", "__trex_escapechar: non-printable character 255 found"},
        {"a{", "__trex_element: number expected"},
        {"a{}", "__trex_element: number expected"},
        {"a{,3}", "__trex_element: number expected"},
        {"a{-1}", "__trex_element: number expected"},
        {"a{b}", "__trex_element: number expected"},
        {"a{1", "__trex_element: , or } expected"},
        {"a{1;2}", "__trex_element: , or } expected"},
        {"a{1 }", "__trex_element: , or } expected"},
        {"a{1,", "__trex_element: expected character '}' not found"},
        {"a{1,b}", "__trex_element: expected character '}' not found"},
        {"a{1,2", "__trex_element: expected character '}' not found"},
        {"a{65536}", "__trex_element: number exceeds maximum value 65535"},
        {"a{65536,}", "__trex_element: number exceeds maximum value 65535"},
        {"a{65536,65537}", "__trex_element: number exceeds maximum value 65535"},
        {"a{2,65536}", "__trex_element: number 65536 exceeds maximum value 65535"},
        {"a{2,2147483647}", "__trex_element: number 2147483647 exceeds maximum value 65535"},
        {"a{2147483647}", "__trex_element: number exceeds maximum value 65535"},
        {"a{2147483648}", "__trex_parsenumber: overflow in numeric constant"},
        {"a{1,2147483648}", "__trex_parsenumber: overflow in numeric constant"},
        {"a{99999999999999999999999}", "__trex_parsenumber: overflow in numeric constant"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.pattern);
        EXPECT_EQ(compiled(c.pattern), nullptr);
        EXPECT_EQ(log.errors(), lines{c.line});
    }
}

TEST_F(tiny_rex, groups_nest_a_thousand_deep) {
    const auto nested = [](size_t depth) {
        return std::string(depth, '(') + "a" + std::string(depth, ')');
    };
    EXPECT_NE(compiled(nested(1000)), nullptr);
    const lines too_deep = {"__trex_element: groups are nested deeper than 1000"};
    EXPECT_EQ(compiled(nested(1001)), nullptr);
    EXPECT_EQ(log.errors(), too_deep);
    EXPECT_EQ(compiled(std::string(1'000'000, '(')), nullptr);
    EXPECT_EQ(log.errors(), too_deep);
    // Side by side is not nested.
    std::string row;
    for (int i = 0; i < 2000; ++i) {
        row += "(a)";
    }
    EXPECT_NE(compiled(row), nullptr);
}

TEST_F(tiny_rex, a_pattern_is_wrapped_before_it_is_parsed) {
    static const struct {
        const char *pattern, *wrapped;
    } cases[] = {
        {"", ".*.*$"},       {"foo", ".*foo.*$"}, {"^foo", "^foo.*$"},
        {"foo$", ".*foo$"},  {"^foo$", "^foo$"},  {"^", "^.*$"},
        {"$", ".*$"},        {".*", ".*.*$"},     {".*a", ".*a.*$"},
        {"*", ".**.*$"},     {"a|b", ".*a|b.*$"}, {"a\\$", ".*a\\$"},
        {"a\\", ".*a\\.*$"}, {".", ".*..*$"},     {"(^a$)", ".*(^a$).*$"},
    };
    for (const auto &c : cases) {
        const trex_ptr expression = compiled(c.pattern);
        ASSERT_NE(expression, nullptr) << c.pattern;
        EXPECT_STREQ(expression->pattern, c.wrapped) << c.pattern;
    }
}

TEST_F(tiny_rex, a_pattern_becomes_these_nodes) {
    const trex_ptr expression = compiled("^(a|[^b-d\\d-])+?{2,3}x.*$", trex_fold_case);
    ASSERT_NE(expression, nullptr);
    // Printed as type/left/right/next along the links, as the order in the array is free.
    const auto shown = [&expression](auto &&self, int32_t index) -> std::string {
        std::string text;
        for (; index >= 0; index = expression->nodes[index].next) {
            const TRexNode &node = expression->nodes[index];
            text += text.empty() ? "" : " ";
            switch (node.type) {
            case 256:
                text += "greedy " + std::to_string(node.right >> 16) + "-" +
                        std::to_string(node.right & 0xFFFF) + "<" + self(self, node.left) + ">";
                break;
            case 257:
                text += "or<" + self(self, node.left) + "><" + self(self, node.right) + ">";
                break;
            case 258:
                text += "group " + std::to_string(node.right) + "<" + self(self, node.left) + ">";
                break;
            case 261:
            case 263:
                text += std::to_string(node.type) + "<" + self(self, node.left) + ">";
                break;
            case 262:
            case 264:
                text += std::to_string(node.type) + ":" + std::to_string(node.left) + ":" +
                        std::to_string(node.right);
                break;
            default:
                EXPECT_EQ(node.left, -1);
                EXPECT_EQ(node.right, -1);
                text += std::to_string(node.type);
            }
        }
        return text;
    };
    // A second quantifier is a literal, and the braces behind it are its own.
    EXPECT_EQ(shown(shown, 0),
              "group 0<267 greedy 1-65535<group 1<or<97><263<264:98:100 262:100:-1 "
              "45>>>> greedy 2-3<63> 120 269 266>");
    EXPECT_EQ(expression->nsubexpr, 2);
    EXPECT_EQ(expression->case_flag, 0);
    EXPECT_LE(expression->nsize, expression->nallocated);
}

TEST_F(tiny_rex, a_group_without_a_number_has_no_right) {
    const trex_ptr expression = compiled("^(?:a)$");
    ASSERT_NE(expression, nullptr);
    for (int32_t i = 0; i < expression->nsize; ++i) {
        if (expression->nodes[i].type == trex_op_nocapexpr) {
            EXPECT_EQ(expression->nodes[i].right, -1);
        }
    }
    EXPECT_EQ(expression->nsubexpr, 1);
}

TEST_F(tiny_rex, compiling_without_memory_fails_with_a_line) {
    // The node array starts as long as the pattern, so that here the last node makes it grow.
    for (const char *pattern : {"^abc$", "^a*$", "a(b|[c-e])\\d?$"}) {
        TRex *expression = nullptr;
        const unsigned failed = sweep_allocations(
            [&] { expression = trex_compile_ex(pattern, trex_fold_case); },
            [&](unsigned n) {
                EXPECT_EQ(expression, nullptr) << pattern << ", allocation " << n;
                const lines errors = log.errors();
                const bool grows = errors.size() == 2;
                EXPECT_EQ(errors, grows
                                      ? lines({std::string("__trex_newnode: ") + strerror(ENOMEM),
                                               "__trex_element: failed to create EOL node"})
                                      : lines{std::string("trex_compile_ex: ") + strerror(ENOMEM)})
                    << pattern << ", allocation " << n;
            });
        EXPECT_GE(failed, 4u); // record, text, nodes, match table
        EXPECT_NE(expression, nullptr);
        trex_free(expression);
    }
}

TEST_F(tiny_rex, freeing_nothing_is_fine) {
    trex_free(nullptr);
}

// --- Matching ---

struct match_case {
    const char *pattern, *subject;
    int want;
    uint8_t case_flag = trex_exact_case;
};

void expect_matches(const std::vector<match_case> &cases) {
    for (const match_case &c : cases) {
        const trex_ptr expression = compiled(c.pattern, c.case_flag);
        ASSERT_NE(expression, nullptr) << c.pattern;
        EXPECT_EQ(trex_match(expression.get(), c.subject), c.want)
            << "pattern " << c.pattern << ", subject \"" << c.subject << "\", flag "
            << int{c.case_flag};
    }
}

TEST_F(tiny_rex, anchors_and_the_wrap) {
    expect_matches({
        {"foo", "foo", 1},
        {"foo", "xfooy", 1},
        {"foo", "fo", 0},
        {"foo", "", 0},
        {"^foo$", "foo", 1},
        {"^foo$", "xfoo", 0},
        {"^foo$", "foox", 0},
        {"^foo", "foox", 1},
        {"foo$", "xfoo", 1},
        {"foo$", "foox", 0},
        {"", "", 1},
        {"", "abc", 1},
        {"^$", "", 1},
        {"^$", "a", 0},
        {"$", "", 1},
        {"^", "", 1},
        {"a^b", "ab", 0},
        {"^^a$$", "a", 1},
    });
}

TEST_F(tiny_rex, an_alternation_at_the_top_splits_the_wrapped_pattern) {
    expect_matches({
        {"a|b", "b", 1},    // "b.*$"
        {"a|b", "bx", 1},   //
        {"a|b", "xb", 0},   //
        {"a|b", "a", 0},    // ".*a" has no end node in its sequence
        {"a|b", "xa", 0},   //
        {"^a|b$", "a", 1},  //
        {"^a|b$", "b", 1},  //
        {"^a|b$", "ab", 0}, // the first branch matched, and did not get to the end
        {"a|", "x", 1},     // ".*$" on the right
        {"|a", "x", 1},     // ".*" alone on the left takes everything
        {"|a", "", 1},      // also of nothing
    });
}

TEST_F(tiny_rex, a_trailing_escape_meets_the_wrap) {
    expect_matches({
        {"a\\$", "a$", 0},  // no end node
        {"^a\\$", "a$", 1}, //
        {"^a\\$", "a$b", 0},
        {"a\\", "a...", 1}, // "\.*$"
        {"a\\", "a", 1},
        {"a\\", "ab", 0},
    });
}

TEST_F(tiny_rex, case_flag) {
    expect_matches({
        {"^[a-c]$", "B", 1, trex_fold_case},
        {"^[a-c]$", "B", 0, trex_exact_case},
        {"^[A-C]$", "b", 1, trex_fold_case},
        {"^[b]$", "B", 0, trex_fold_case},   // listed singly: exact
        {"^[b-b]$", "B", 1, trex_fold_case}, // as a range of one: folded
        {"^[b-b]$", "c", 0, trex_fold_case},
        {"^[B]$", "B", 1, trex_fold_case},
        {"^b$", "B", 1, trex_fold_case},
        {"^B$", "b", 1, trex_fold_case},
        {"^b$", "B", 0, trex_exact_case},
        {"^[^a-c]$", "B", 0, trex_fold_case},
        {"^[^b]$", "B", 1, trex_fold_case},
        {"^\\u$", "a", 0, trex_fold_case},
        {"^\\l$", "A", 0, trex_fold_case},
        {"^[Z-a]$", "z", 0, trex_fold_case}, // z-a when both bounds are lowered
        {"^[Z-_]$", "z", 0, trex_fold_case},
        {"^[A-_]$", "a", 0, trex_fold_case}, // a to _: empty
        {"^[ -_]$", "A", 0, trex_fold_case}, // "a" is beyond "_"
        {"^[ -_]$", "A", 1, trex_exact_case},
        {"^@$", "`", 0, trex_fold_case}, // letters only have two cases
        {"^`$", "@", 0, trex_fold_case},
        {"^\\[$", "{", 0, trex_fold_case},
        {"^\\{$", "[", 0, trex_fold_case},
    });
}

TEST_F(tiny_rex, class_letters) {
    static const struct {
        char letter;
        std::string members;
    } classes[] = {
        {'a', "azAZ"},      {'d', "09"},          {'l', "az"},
        {'p', "!/:@[`{~_"}, {'s', " \t\n\v\f\r"}, {'u', "AZ"},
        {'w', "azAZ09_"},   {'x', "09afAF"},      {'c', "\x01\x1f\x7f\t"},
    };
    for (const auto &c : classes) {
        const std::string escape = std::string("\\") + c.letter;
        const trex_ptr plain = compiled("^" + escape + "$");
        const trex_ptr bracketed = compiled("^[" + escape + "]$");
        ASSERT_TRUE(plain && bracketed);
        for (const char member : c.members) {
            const char subject[] = {member, '\0'};
            EXPECT_EQ(trex_match(plain.get(), subject), 1) << escape << " " << int{member};
            EXPECT_EQ(trex_match(bracketed.get(), subject), 1) << escape << " " << int{member};
        }
    }
    // Every byte is in exactly one of a class and its opposite; l and u have none.
    for (const char *pair : {"aA", "cC", "dD", "pP", "sS", "wW", "xX"}) {
        const trex_ptr in = compiled(std::string("^\\") + pair[0] + "$");
        const trex_ptr out = compiled(std::string("^\\") + pair[1] + "$");
        ASSERT_TRUE(in && out);
        for (int code = 1; code < 256; ++code) {
            const char subject[] = {static_cast<char>(code), '\0'};
            EXPECT_EQ(trex_match(in.get(), subject) + trex_match(out.get(), subject), 1)
                << pair << " " << code;
            if (code > 127) {
                EXPECT_EQ(trex_match(in.get(), subject), 0) << pair << " " << code;
            }
        }
    }
    expect_matches({{"^\\L\\U$", "LU", 1}, {"^\\L$", "a", 0}, {"^\\q$", "q", 1}});
}

TEST_F(tiny_rex, classes) {
    expect_matches({
        {"^[\\-.]$", "-", 1},     {"^[\\-.]$", ".", 1},  {"^[\\-.]$", "\\", 0},
        {"^[-a]$", "-", 1},       {"^[a-]$", "-", 1},    {"^[a-c-e]$", "-", 1},
        {"^[a-c-e]$", "d", 0},    {"^[\\d-x]$", "-", 1}, {"^[\\d-x]$", "w", 0},
        {"^[--0]$", ".", 1},      {"^[+--]$", ",", 1},   {"^[\\a-z-]$", "-", 1},
        {"^[\\[-\\]]$", "\\", 1}, {"^[a\\]b]$", "]", 1}, {"^[a^]$", "^", 1},
        {"^[^^]$", "^", 0},       {"^[.]$", "a", 0},     {"^[.*]$", "*", 1},
        {"^[\\bB]$", "b", 1},     {"^[\\B]$", "B", 1},   {"^[\\t-\\r]$", "\n", 1},
        {"^[a-\\d]$", "d", 1},    {"^[a-\\d]$", "5", 0}, {"^[(|)]$", "|", 1},
        {"^[^a]$", "", 0},        {"^[^a]$", "\xe9", 1},
    });
}

TEST_F(tiny_rex, literals_that_look_special) {
    expect_matches({
        {"^]}$", "]}", 1},
        {"^(+a)$", "+a", 1},
        {"^(+a)", "+a", 1},
        {"^a**$", "a*", 1},
        {"^a?*$", "a*", 1},
        {"^a+{$", "aa{", 1},
        {"^\\(\\)$", "()", 1},
        {"^\\\\$", "\\", 1},
        {"^(a|*)", "*", 1},
        {"^({2})", "{2}", 1},
    });
}

// --- Repetitions ---

TEST_F(tiny_rex, star_needs_an_end_behind_it_and_fails_where_plus_stops) {
    expect_matches({
        {"^a*$", "aaa", 1},
        {"^a*$", "", 1},
        {"^a*b$", "aab", 1},
        {"^a*b$", "b", 1},
        {"^a*b$", "aac", 0},
        {"^a*ab$", "aab", 1}, // lazy: stops as soon as the rest completes
        {"^a+ab$", "aab", 1},
        {"^a+$", "", 0},
        {"^(a*b)c$", "abc", 0}, // the rest is "b", which is no end: a* fails at the b
        {"^(a+b)c$", "abc", 1}, // a+ stops there
        {"^(a*b)c$", "bc", 1},  // zero repetitions ask for no rest
        {"^(a*)$", "aa", 1},    // last in its group: the rest is "$"
        {"^((a*))b$", "aab", 1},
        {"^(x|a*)$", "aa", 0}, // last in a branch: no rest, so * runs into the end
        {"^(x|a+)$", "aa", 1},
        {"^(x|a*)b$", "ab", 0}, // or into the b
        {"^(x|a+)b$", "ab", 1},
        {"^(a+b)*$", "abab", 1},
        {"^(a+)+$", "aaa", 1},
        {"^(a*)+b$", "aab", 1},
    });
}

TEST_F(tiny_rex, optional) {
    expect_matches({
        {"^a?$", "", 1},
        {"^a?$", "a", 1},
        {"^a?$", "aa", 0},
        {"^a?b$", "ab", 1},
        {"^a?ab$", "ab", 1}, // the rest fails after the operand: zero repetitions
        {"^(a?)ab$", "ab", 1},
        {"^(x|a?)ab$", "ab", 0},  // last in a branch: no rest, the operand stays
        {"^(ba?c)d$", "bacd", 1}, // needs no end behind it
    });
}

TEST_F(tiny_rex, exact_counts) {
    expect_matches({
        {"^a{3}$", "aaa", 1},
        {"^a{3}$", "aa", 0},
        {"^a{3}$", "aaaa", 0},
        {"^a{2,2}$", "aa", 1},
        {"^a{0}b$", "b", 1},
        {"^a{0}b$", "ab", 0},
        {"^(a{2})a$", "aaa", 1},
        {"^\\B{3}$", "", 1}, // an operand that consumes nothing matches any number of times
        {"^(b?){2}$", "", 1},
    });
}

TEST_F(tiny_rex, bounded_counts) {
    expect_matches({
        {"^a{1,2}$", "a", 1},        {"^a{1,2}$", "aa", 1},
        {"^a{1,2}$", "aaa", 0},      {"^a{2,3}b$", "ab", 0},
        {"^a{2,3}b$", "aab", 1},     {"^a{2,3}b$", "aaab", 1},
        {"^a{2,3}b$", "aaaab", 0},   {"^a{2,}b$", "aaaaaab", 1},
        {"^a{2,}b$", "aaaaaac", 0},  {"^a{0,2}b$", "b", 1},
        {"^(a{1,2})$", "aaaa", 1},   // in a group the maximum is not enforced
        {"^(?:a{1,2})$", "aaaa", 1}, //
        {"^(a{1,2}b)$", "aaaab", 1}, //
        {"^(a{1,2}a)$", "aaa", 0},   // and nothing is given back
        {"^a{1,2}a$", "aaa", 1},     {"^a{1,2}a{1,2}$", "aaa", 1},
        {"^a{1,2}|b$", "aaa", 1}, // last in a branch: no rest, no maximum
        {"^a{1,2}b|c$", "aaab", 0},  {"^(x|y{1,2}z)$", "yyyz", 1},
    });
}

TEST_F(tiny_rex, any_character) {
    expect_matches({
        {"^.$", "a", 1},
        {"^.$", "\n", 1},
        {"^.$", "\xe9", 1},
        {"^.$", "", 0},
        {"^.$", "ab", 0},
        {"^a.*b$", "a\r\nb", 1},
        {"^a$", "a\n", 0}, // "$" is the end, not a line's end
    });
}

TEST_F(tiny_rex, dot_star) {
    expect_matches({
        {"^a.*b$", "axxb", 1},
        {"^a.*b$", "ab", 1},
        {"^a.*b$", "abb", 1},
        {"^.*$", "", 1},
        {"^(.*)$", "abc", 1}, // last in its group: takes the rest
        {"^(.*)$", "", 1},    // also an empty one
        {"^(a.*)$", "a", 1},
        {"^(dsl.*)$", "dsl", 1},
        {"(a.*)", "ba", 1},
        {"^(a.*|b)$", "a", 1},
        {"^((a.*))$", "a", 1},
        {"^(?:a.*)$", "a", 1},
        {"^a(.*)?$", "a", 1},
        {"^(.*.*)$", "abc", 1}, // so do two of them
        {"^(a.*.*)$", "a", 1},
        {"^(.*a)$", "xa", 0}, // no end in its own sequence
        {"^(.*a$)$", "xa", 1},
        {"^(.*a.*)$", "xax", 0}, // the second takes the rest, which is no end node
        {"^a.*x?$", "a", 0},     // at the subject's end only "$" may follow, if anything does
        {"^(a.*x?)$", "a", 0},
        {"a?$", "b", 1}, // where it begins earlier the end is a place to try
        {"^a.*x?$", "ab", 1},
        {"^a.*.*$", "a", 1},
        {"^a?.*$", "a", 1},
        {"^a*.*$", "ab", 1}, // a ".*" that found the end completes a rest
        {"^..*$", "", 0},
        {"^..*$", "a", 1},
        {"^.*?b$", "ab", 0}, // a repetition of ".*", which takes everything
        {"^.*+$", "ab", 1},
    });
}

TEST_F(tiny_rex, what_has_matched_is_not_tried_differently) {
    expect_matches({
        {"^(a|ab)c$", "abc", 0},
        {"^(ab|a)c$", "abc", 1},
        {"^(a|ab)(c|bcd)$", "abcd", 1},
        {"^(a|b)+$", "abba", 1},
        {"^(a|b)*c$", "abbac", 1},
        {"^((a|b)|c)d$", "cd", 1},
        {"^(a|b|c|d)$", "d", 1},
    });
}

TEST_F(tiny_rex, word_boundaries) {
    expect_matches({
        {"\\bfoo\\b", "a foo b", 1},
        {"\\bfoo\\b", "foo", 1},
        {"\\bfoo\\b", "xfoo", 0},
        {"\\bfoo\\b", "foo_", 0},
        {"\\Bfoo", "xfoo", 1},
        {"\\Bfoo", "-foo", 0},
        {"^\\b", "", 0},
        {"^\\B$", "", 1},
        {"^\\b$", "", 0},
        {"\\bfoo",
         "\xe9"
         "foo",
         1}, // no letter beyond ASCII
    });
}

TEST_F(tiny_rex, an_operand_that_consumes_nothing_ends_the_loop) {
    expect_matches({
        {"^(a?)*$", "a", 1},
        {"^(a?)*$", "aa", 0}, // a? sees no end behind the first a, and consumes nothing
        {"^(a?)*b$", "c", 0},
        {"^(a?)+b$", "c", 0},
        {"^(\\B)*a$", "-", 0},
        {"^(a?){2,}b$", "aac", 0},
        {"^((a?){2,}b)$", "ab", 1},
        {"^((a?){2,}b)$", "aab", 0},
        {"^((a?)+b)$", "b", 1}, // + stops at the second round
        {"^((a?)*b)$", "b", 0}, // where * fails
        {"^^*a$", "a", 1},      // a quantifier behind an anchor repeats the anchor
    });
}

TEST_F(tiny_rex, the_built_in_quad_pattern) {
    static constexpr char quad[] =
        R"([0-9]{1,3}(\-|_|\.)[0-9]{1,3}(\-|_|\.)[0-9]{1,3}(\-|_|\.)[0-9]{1,3})";
    expect_matches({
        {quad, "host-1-2-3-4.example", 1, trex_fold_case},
        {quad, "1.2.3.4", 1, trex_fold_case},
        {quad, "dyn_192_0_2_33.example.net", 1, trex_fold_case},
        {quad, "mail.example.net", 0, trex_fold_case},
        {quad, "1.2.3.example", 0, trex_fold_case},
    });
}

// --- Node checks and damage ---

// An expression as it comes from a file: nodes, nothing else.
struct stored {
    explicit stored(std::vector<TRexNode> list) : nodes(std::move(list)) {
        record.nodes = nodes.data();
        record.nallocated = static_cast<int32_t>(nodes.size());
    }
    std::vector<TRexNode> nodes;
    TRex record = {};
};

TEST_F(tiny_rex, missing_arguments_of_a_match) {
    EXPECT_EQ(trex_match(nullptr, "a"), 0);
    EXPECT_EQ(log.errors(), lines{"trex_match: TRex* is NULL"});
    TRex empty = {};
    EXPECT_EQ(trex_match(&empty, "a"), 0);
    EXPECT_EQ(log.errors(), lines{"trex_match: node is NULL"});
    static constexpr char subject[] = "a";
    EXPECT_EQ(__trex_match_span(nullptr, subject, subject + 1), 0);
    EXPECT_EQ(log.errors(), lines{"trex_match: TRex* is NULL"});
    EXPECT_EQ(__trex_match_span(&empty, subject, subject + 1), 0);
    EXPECT_EQ(log.errors(), lines{"trex_match: node is NULL"});
    const trex_ptr expression = compiled("a");
    EXPECT_EQ(trex_match(expression.get(), nullptr), 0);
    EXPECT_EQ(log.errors(), lines{"trex_match: Invalid argument"});
    EXPECT_EQ(__trex_node_is_valid(nullptr, expression->nodes), 0);
    EXPECT_EQ(log.errors(), lines{"__trex_node_is_valid: TRex* is NULL"});
    EXPECT_EQ(__trex_node_is_valid(expression.get(), nullptr), 0);
    EXPECT_EQ(log.errors(), lines{"__trex_node_is_valid: node is NULL"});
}

TEST_F(tiny_rex, every_fault_of_a_node_has_its_line) {
    static constexpr int32_t packed = 2 << 16 | 3;
    static const struct {
        TRexNode node;
        const char *line; // null: the node is fine. The array has 4 nodes.
    } cases[] = {
        {{'a', -1, -1, -1}, nullptr},
        {{'a', 3, 3, 3}, nullptr},
        {{'a', -7, -8, INT32_MIN}, nullptr},
        {{'a', 4, -1, -1}, "corrupt regex: node->left is out of range 4 > 4"},
        {{'a', INT32_MAX, 9, 9}, "corrupt regex: node->left is out of range 2147483647 > 4"},
        {{'a', -1, 4, 7}, "corrupt regex: node->right is out of range 4 > 4"},
        {{'a', -1, -1, 5}, "corrupt regex: node->next is out of range 5 > 4"},
        {{256, 1, packed, -1}, nullptr},
        {{256, 4, packed, -1}, "corrupt regex: node->left is out of range 4 > 4"},
        {{256, 1, packed, 4}, "corrupt regex: node->next is out of range 4 > 4"},
        {{256, -1, -1, -1}, "greedy operator must have value in 'right'"},
        {{256, -1, packed, -1}, "greedy operator must have value in 'left'"},
        {{256, 1, 3 << 16 | 2, -1}, "greedy operator range 3 - 2 is invalid"},
        {{256, 1, -65536, -1}, "greedy operator range 65535 - 0 is invalid"},
        {{256, 1, -2, -1}, "greedy operator range 65535 - 65534 is invalid"},
        {{256, 1, INT32_MIN | 0xFFFF, -1}, nullptr}, // 32768 to 65535
        {{257, -1, -1, -1}, "OR operator must have value in 'left'"},
        {{257, 1, -1, -1}, "OR operator must have value in 'right'"},
        {{257, 1, 4, -1}, "corrupt regex: node->right is out of range 4 > 4"},
        {{257, 1, 2, -1}, nullptr},
        {{258, -1, 0, -1}, "expr () operator must have value in 'left'"},
        {{258, 1, 4, -1}, "corrupt regex: node->right is out of range 4 > 4"},
        {{258, 1, -1, -1}, nullptr},
        {{259, -1, 0, -1}, "expr () operator must have value in 'left'"},
        {{260, -1, -1, -1}, nullptr},
        {{260, 4, -1, -1}, "corrupt regex: node->left is out of range 4 > 4"},
        {{261, -1, -1, -1}, "class operator must have value in 'left'"},
        {{263, -1, -1, -1}, "class operator must have value in 'left'"},
        {{263, 1, -1, -1}, nullptr},
        {{262, 'd', -1, -1}, nullptr},
        {{262, 'd', 4, -1}, "corrupt regex: node->right is out of range 4 > 4"},
        {{264, 'a', 'z', -1}, nullptr},
        {{264, 'a', 'z', 4}, "corrupt regex: node->next is out of range 4 > 4"},
        {{264, -1, 'z', -1}, "range operator must have value in 'left'"},
        {{264, 'a', -1, -1}, "range operator must have value in 'right'"},
        {{265, -1, -1, -1}, "non-printable character 265 found"},
        {{266, -1, -1, -1}, nullptr},
        {{267, -1, -1, -1}, nullptr},
        {{268, 'b', -1, -1}, nullptr},
        {{268, 'b', 4, -1}, "corrupt regex: node->right is out of range 4 > 4"},
        {{269, -1, -1, -1}, nullptr},
        {{270, -1, -1, -1}, "non-printable character 270 found"},
        {{31, -1, -1, -1}, "non-printable character 31 found"},
        {{32, -1, -1, -1}, nullptr},
        {{126, -1, -1, -1}, nullptr},
        {{127, -1, -1, -1}, "non-printable character 127 found"},
        {{255, -1, -1, -1}, "non-printable character 255 found"},
        {{-1, -1, -1, -1}, "non-printable character -1 found"},
    };
    stored four(std::vector<TRexNode>(4, TRexNode{'a', -1, -1, -1}));
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::Message() << c.node.type << " " << c.node.left << " "
                                          << c.node.right << " " << c.node.next);
        EXPECT_EQ(__trex_node_is_valid(&four.record, &c.node), c.line ? 0 : 1);
        EXPECT_EQ(log.errors(),
                  c.line ? lines{std::string("__trex_node_is_valid: ") + c.line} : lines{});
    }
}

TEST_F(tiny_rex, what_compiles_but_fails_the_check_of_a_match) {
    static const struct {
        const char *pattern, *subject, *line;
    } cases[] = {
        {"^a{3,2}$", "aaa", "greedy operator range 3 - 2 is invalid"},
        {"^a{65535}$", "a", "greedy operator must have value in 'right'"},
        {"^a{65535,}$", "a", "greedy operator must have value in 'right'"},
        {"^\\n$", "\n", "non-printable character 10 found"},
        {"^\\t$", "\t", "non-printable character 9 found"},
        {"^\\v$", "\v", "non-printable character 11 found"},
        {"^\\f$", "\f", "non-printable character 12 found"},
        {"^\\r$", "\r", "non-printable character 13 found"},
        {"^[\\n]$", "\n", "non-printable character 10 found"},
        // Wherever it stands: the good branch is not reached any more.
        {"^(\\n|a)$", "a", "non-printable character 10 found"},
        {"^(a{3,2})*$", "", "greedy operator range 3 - 2 is invalid"},
        {"^(a{3,2})?$", "", "greedy operator range 3 - 2 is invalid"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.pattern);
        const trex_ptr expression = compiled(c.pattern);
        ASSERT_NE(expression, nullptr);
        EXPECT_EQ(trex_match(expression.get(), c.subject), 0);
        EXPECT_EQ(log.errors(), lines{std::string("__trex_node_is_valid: ") + c.line});
    }
    // A node that is not used is not judged.
    expect_matches({{"^(a|\\n)$", "a", 1}, {"^a\\n$", "b", 0}});
}

TEST_F(tiny_rex, links_that_form_a_cycle) {
    const lines in_node = {"__trex_matchnode: corrupt regex: nodes form a cycle"};
    const lines in_class = {"__trex_matchclass: corrupt regex: nodes form a cycle"};
    static constexpr int32_t star = 65535;
    struct {
        const char *name;
        std::vector<TRexNode> nodes;
        lines want;
    } cases[] = {
        {"a chain", {{258, 1, 0, -1}, {'a', -1, -1, 1}}, in_node},
        {"a chain of two", {{258, 1, 0, -1}, {'a', -1, -1, 2}, {'a', -1, -1, 1}}, in_node},
        {"a chain of .*", {{258, 1, 0, -1}, {269, -1, -1, 1}}, in_node},
        {"a group in itself", {{258, 0, 0, -1}}, in_node},
        {"a group in its body", {{258, 1, 0, -1}, {259, 0, -1, -1}}, in_node},
        {"a repetition of itself", {{258, 1, 0, -1}, {256, 1, star, -1}}, in_node},
        {"an alternation on its left", {{257, 0, 1, -1}, {'a', -1, -1, -1}}, in_node},
        {"an alternation on its right", {{257, 1, 0, -1}, {'b', -1, -1, -1}}, in_node},
        {"items of a class", {{261, 1, -1, -1}, {'b', -1, -1, 1}}, in_class},
        {"items of a negated class", {{263, 1, -1, -1}, {'b', -1, -1, 1}}, in_class},
        {"the rest of a repetition",
         {{258, 1, 0, -1}, {256, 2, star, 1}, {'a', -1, -1, -1}},
         in_node},
    };
    for (auto &c : cases) {
        SCOPED_TRACE(c.name);
        stored expression(c.nodes);
        EXPECT_EQ(trex_match(&expression.record, std::string(100, 'a').c_str()), 0);
        EXPECT_EQ(log.errors(), c.want);
    }
    // The same chain is never walked to its end by a subject that fails before.
    stored chain({{258, 1, 0, -1}, {'a', -1, -1, 1}});
    EXPECT_EQ(trex_match(&chain.record, ""), 0);
    EXPECT_EQ(trex_match(&chain.record, "b"), 0);
}

TEST_F(tiny_rex, steps_are_limited) {
    // Each optional group looks at all that follow it, twice.
    std::string pattern = "^";
    for (int i = 0; i < 40; ++i) {
        pattern += "(a?)";
    }
    const trex_ptr expression = compiled(pattern + "(b)$");
    ASSERT_NE(expression, nullptr);
    EXPECT_EQ(trex_match(expression.get(), (std::string(40, 'a') + "cb").c_str()), 0);
    EXPECT_EQ(log.errors(), lines{"__trex_matchnode: regex takes too many steps"});
}

TEST_F(tiny_rex, long_patterns_and_subjects_stay_within_the_stack) {
    const std::string many(200'000, 'a');
    expect_matches({{("^" + many + "$").c_str(), many.c_str(), 1}});
    // A chain of repetitions looks ahead from each into the next.
    std::string optional = "^";
    std::string alternatives = "^(";
    for (int i = 0; i < 20'000; ++i) {
        optional += "(a?)";
        alternatives += "b|";
    }
    const trex_ptr chain = compiled(optional + "$");
    ASSERT_NE(chain, nullptr);
    EXPECT_EQ(trex_match(chain.get(), many.c_str()), 0);
    EXPECT_EQ(log.errors(), lines{"__trex_matchnode: corrupt regex: nodes form a cycle"});
    expect_matches({{(alternatives + "a)$").c_str(), "a", 1}});
}

// --- Escaping ---

TEST_F(tiny_rex, escape) {
    EXPECT_STREQ(heap_string(trex_escape("a$()*+.?[\\]^{|}b")).get(),
                 "a\\$\\(\\)\\*\\+\\.\\?\\[\\\\\\]\\^\\{\\|\\}b");
    EXPECT_STREQ(heap_string(trex_escape("")).get(), "");
    EXPECT_STREQ(heap_string(trex_escape("-_/\xe9 plain")).get(), "-_/\xe9 plain");
    EXPECT_EQ(trex_escape(nullptr), nullptr);
    EXPECT_EQ(log.errors(), lines{"trex_escape: Invalid argument"});
}

TEST_F(tiny_rex, escaping_without_memory_fails_with_a_line) {
    {
        const failing_allocation failing(1);
        EXPECT_EQ(trex_escape("a"), nullptr);
    }
    EXPECT_EQ(log.errors(), lines{std::string("trex_escape: ") + strerror(ENOMEM)});
}

TEST_F(tiny_rex, an_escaped_text_matches_itself) {
    std::string printable;
    for (char c = 0x20; c < 0x7F; ++c) {
        printable += c;
    }
    const heap_string escaped(trex_escape(printable.c_str()));
    ASSERT_NE(escaped, nullptr);
    const std::string pattern = std::string("^") + escaped.get() + "$";
    expect_matches({{pattern.c_str(), printable.c_str(), 1},
                    {pattern.c_str(), printable.substr(1).c_str(), 0}});
}

} // namespace
} // namespace quillfence
