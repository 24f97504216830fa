#include "pattern_text.h"

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "engine_messages.h"

namespace quillfence::data_files {
namespace {

using kind = pattern_line::kind;

// As it would come from a file: only nodes and their number.
trex_ptr stored(const std::string &pattern) {
    engine_messages unheard;
    trex_ptr expression(trex_compile_ex(pattern.c_str(), trex_fold_case));
    if (expression) {
        expression->nallocated = expression->nsize;
    }
    return expression;
}

std::string nodes_text(const TRex &expression) {
    std::string text;
    for (int32_t i = 0; i < expression.nallocated; ++i) {
        text += describe_node(expression, i) + "\n";
    }
    return text;
}

// --- Lines ---

TEST(pattern_reader, lines_that_hold_a_pattern) {
    const struct {
        const char *line;
        const char *want;
    } cases[] = {
        {"foo", "foo"},
        {"^foo$", "^foo$"},
        {"  foo \t", "foo"},
        {"foo\\ ", "foo\\ "},
        {"foo\\\\ ", "foo\\\\"},
        {"a b", "a b"},
        {"foo # not a comment", "foo # not a comment"},
        {"\\#foo", "\\#foo"},
        {"\\/foo/", "\\/foo/"},
        {"if you", "if you"},
        {"iffy/", "iffy/"},
        {"endif2", "endif2"},
        {"ENDIF.example.org", "ENDIF.example.org"},
        {"If you", "If you"},
        {"!foo", "!foo"},
        {"/foo/", "foo"},
        {"/foo/ REJECT no", "foo"},
        {"/foo/\tREJECT", "foo"},
        {"  /foo/ REJECT", "foo"},
        {"/foo/i REJECT", "foo"},
        {"/foo/imsEUX REJECT", "foo"},
        {"/a\\/b/ REJECT c/d", "a\\/b"},
        {"/a\\\\/ REJECT", "a\\\\"},
        {"/ a / REJECT", " a "},
        {"/#/", "#"},
    };
    for (const auto &c : cases) {
        const pattern_line got = pattern_reader().read(c.line);
        EXPECT_TRUE(got.is == kind::pattern && got.text == c.want)
            << c.line << ": got " << got.text << ", want " << c.want;
    }
}

TEST(pattern_reader, lines_that_hold_nothing) {
    for (const char *line : {"", " ", "\t", "#", "# foo", "  # /foo/", "#/foo/ REJECT"}) {
        EXPECT_TRUE(pattern_reader().read(line).is == kind::nothing) << line;
    }
}

TEST(pattern_reader, conditions) {
    const struct {
        const char *line;
        kind want;
        const char *text;
    } cases[] = {
        {"if /foo/", kind::condition, "foo"},
        {"if/foo/i", kind::condition, "foo"},
        {" if  /a\\/b/ ", kind::condition, "a\\/b"},
        {"if !/foo/", kind::negated_condition, "foo"},
        {"if ! /foo/", kind::negated_condition, "foo"},
        {" endif ", kind::end_of_condition, ""},
        {"IF /Foo/", kind::condition, "Foo"},
        {"If/foo/i", kind::condition, "foo"},
        {"iF !/foo/", kind::negated_condition, "foo"},
        {"IF! /foo/", kind::negated_condition, "foo"},
        {"ENDIF", kind::end_of_condition, ""},
        {"EndIf\t", kind::end_of_condition, ""},
        {"endif # of the first", kind::end_of_condition, ""},
        {"ENDIF\t/foo/", kind::end_of_condition, ""},
    };
    for (const auto &c : cases) {
        const pattern_line got = pattern_reader().read(c.line);
        EXPECT_TRUE(got.is == c.want && got.text == c.text) << c.line << ": got " << got.text;
    }
}

TEST(pattern_reader, wrong_lines_say_why) {
    const struct {
        std::string line;
        const char *want;
    } cases[] = {
        {"/foo", "the pattern has no closing \"/\"; write \\/ for a pattern that begins with a "
                 "slash"},
        {"/foo\\/", "the pattern has no closing \"/\"; write \\/ for a pattern that begins with a "
                    "slash"},
        {"// REJECT", "the pattern is empty; write .* to match everything"},
        {"/foo/A REJECT", "flag A is not supported; begin the pattern with ^ instead"},
        {"/foo/ix", "flag x is not supported; take the blanks and comments out of the pattern"},
        {"/foo/q", "unknown flag q behind the pattern"},
        {"/foo/REJECT", "unknown flag R behind the pattern"},
        {"!/foo/ OK", "negated patterns are not supported"},
        {"! /foo/ OK", "negated patterns are not supported"},
        {std::string("fo\0o", 4), "the line holds a NUL byte"},
    };
    for (const auto &c : cases) {
        const pattern_line got = pattern_reader().read(c.line);
        EXPECT_TRUE(got.is == kind::wrong && got.text == c.want)
            << c.line << ": got " << got.text << ", want " << c.want;
    }
}

TEST(pattern_reader, wrong_conditions_say_why) {
    const struct {
        const char *line;
        const char *want;
    } cases[] = {
        {"if /foo", "the pattern has no closing \"/\"; write \\/ for a pattern that begins with a "
                    "slash"},
        {"IF /foo/ REJECT",
         "something stands behind the condition; write it into a line of its own"},
        {"if //", "the pattern is empty; write .* to match everything"},
        {"if /foo/x", "flag x is not supported; take the blanks and comments out of the pattern"},
        {"if /foo/ REJECT",
         "something stands behind the condition; write it into a line of its own"},
    };
    for (const auto &c : cases) {
        const pattern_line got = pattern_reader().read(c.line);
        EXPECT_TRUE(got.is == kind::wrong_condition && got.text == c.want)
            << c.line << ": got " << got.text << ", want " << c.want;
    }
}

TEST(pattern_reader, actions) {
    const struct {
        const char *line;
        const char *action;
        bool refuses;
    } cases[] = {
        {"foo REJECT", "", true}, // a pattern with a blank
        {"/foo/", "", true},
        {"/foo/i  ", "", true},
        {"/foo/ REJECT", "REJECT", true},
        {"/foo/i\treject go away", "REJECT", true},
        {"/foo/ 550 5.7.1 no", "550", true},
        {"/foo/ 421", "421", true},
        {"/foo/ defer_if_permit later", "DEFER_IF_PERMIT", true},
        {"/foo/ DISCARD", "DISCARD", true},
        {"/foo/ 250", "250", false},
        {"/foo/ 5500", "5500", false},
        {"/foo/ 4x1", "4X1", false},
        {"/foo/ PREPEND X-Dynamic: yes", "PREPEND", false},
        {"/foo/ DUNNO", "DUNNO", false},
        {"/foo/ OK", "OK", false},
        {"/foo/ permit", "PERMIT", false},
        {"/foo/ WARN", "WARN", false},
        {"/foo/ HOLD", "HOLD", false},
        {"/foo/ a_class_of_their_own", "A_CLASS_OF_THEIR_OWN", false},
    };
    for (const auto &c : cases) {
        const pattern_line got = pattern_reader().read(c.line);
        EXPECT_TRUE(got.is == kind::pattern) << c.line;
        EXPECT_EQ(got.action, c.action) << c.line;
        EXPECT_EQ(is_refusal(got.action), c.refuses) << c.line;
    }
}

TEST(pattern_reader, an_action_must_not_begin_in_the_next_line) {
    pattern_reader reader;
    EXPECT_TRUE(reader.read("/foo/").is == kind::pattern);
    EXPECT_EQ(reader.read("  PREPEND this").text,
              "the action of the pattern above stands here; write it behind the pattern");
    EXPECT_TRUE(reader.read("bar").is == kind::pattern);
    EXPECT_TRUE(reader.read("  baz").is == kind::pattern);
}

TEST(pattern_reader, an_action_may_go_on_in_the_next_lines) {
    pattern_reader reader;
    EXPECT_TRUE(reader.read("  foo").is == kind::pattern);
    EXPECT_TRUE(reader.read("/foo/ REJECT this").is == kind::pattern);
    EXPECT_TRUE(reader.read("   and that").is == kind::nothing);
    EXPECT_TRUE(reader.read("# a comment between").is == kind::nothing);
    EXPECT_TRUE(reader.read("\tand more").is == kind::nothing);
    EXPECT_TRUE(reader.read("bar").is == kind::pattern);
    EXPECT_TRUE(reader.read("  baz").is == kind::pattern);
}

// --- From nodes to text ---

TEST(pattern_of_nodes, gives_the_pattern_as_it_would_be_written) {
    // What is compiled, and what comes back when that is something else.
    const struct {
        const char *pattern;
        const char *want;
    } cases[] = {
        {"foo", nullptr},
        {"^foo$", nullptr},
        {"^foo", nullptr},
        {"foo$", nullptr},
        {".*foo", "foo"},
        {".*foo.*$", "foo"},
        {"foo.*", nullptr},
        {".*.*foo", nullptr},
        {".*", nullptr},
        {"", ".*"},
        {"$", nullptr},
        {"^", nullptr},
        {"^$", nullptr},
        {"a|b", nullptr},
        {"^a|b$", nullptr},
        {"a|b|c", nullptr},
        {"a|", nullptr},
        {"^(dsl|pool)-[0-9]+\\.net$", nullptr},
        {"(?:a|b)c", nullptr},
        {"((a)(b(c)))d", nullptr},
        {"a*b+c?d{2}e{2,}f{2,3}", nullptr},
        {"a{0,}b{1,}c{0,1}", "a*b+c?"},
        {"a{3,2}", nullptr},
        {"a{65535}", nullptr},
        {"a{0}", nullptr},
        {"^.{0,}$", nullptr},
        {"^.*$", "^"},
        {"^.+a.?$", nullptr},
        {"^a.*+b$", nullptr},
        {"*foo", ".**foo"},
        {"a**b", "a*\\*b"},
        {"^*a", nullptr},
        {"$+a", nullptr},
        {"\\.\\$\\(\\)\\*\\+\\?\\[\\\\\\]\\^\\{\\|\\}", nullptr},
        {"a]b}", "a\\]b\\}"},
        {"\\-\\_\\/x", "-_/x"},
        {"\\d\\w\\A\\x", nullptr},
        {"\\bfoo\\B", nullptr},
        {"[abc]", nullptr},
        {"[^a-z0-9]", nullptr},
        {"[a\\-z]", nullptr},
        {"[-a]", "[\\-a]"},
        {"[a-]", "[a\\-]"},
        {"[\\d-z]", "[\\d\\-z]"},
        {"[\\^\\]\\\\.]", nullptr},
        {"[.$]", nullptr},
        {"[+--]", "[+-\\-]"},
        {"[\\t-\\r]", nullptr},
        {"\\t\\n\\v\\f\\r", nullptr},
        {"a\\$", nullptr},
        {"foo\\", "foo\\.*$"},
        {"Foo", nullptr},
        {"a b", nullptr},
        {" a ", "\\ a\\ "},
        {" ", "\\ "},
        {"#a", "\\#a"},
        {"/a/", "\\/a/"},
        {"!/a", "\\!/a"},
        {"!a", nullptr},
        {"if /a/", "\\if /a/"},
        {"endif", "\\endif"},
        {"endif a", "\\endif a"},
        {"IF /a/", "\\IF /a/"},
        {"EndIf", "\\EndIf"},
        {"ending", nullptr},
        {"[0-9]{1,3}(\\-|_|\\.)[0-9]{1,3}", "[0-9]{1,3}(-|_|\\.)[0-9]{1,3}"},
    };
    for (const auto &c : cases) {
        const trex_ptr expression = stored(c.pattern);
        ASSERT_TRUE(expression) << c.pattern;
        std::string reason;
        const std::string got = pattern_of_nodes(*expression, &reason);
        EXPECT_EQ(got, c.want ? c.want : c.pattern) << c.pattern << ": " << reason;
        // And it gives the same nodes, as a line of a list.
        const pattern_line line = pattern_reader().read(got);
        ASSERT_TRUE(line.is == kind::pattern) << got;
        const trex_ptr again = stored(line.text);
        ASSERT_TRUE(again) << got;
        EXPECT_EQ(nodes_text(*again), nodes_text(*expression)) << c.pattern;
    }
}

TEST(pattern_of_nodes, every_pattern_that_compiles_has_a_text) {
    const std::vector<std::string> pieces = {
        "a",   "B",   "7",  "-",   ".",   ".*",  "^",    "$",       "|",     "(",      ")",
        "(?:", "[",   "]",  "[^",  "a-z", "\\d", "\\b",  "\\.",     "\\t",   "*",      "+",
        "?",   "{2}", "{",  "{,",  "}",   "\\",  "{0,}", "{65535}", "{2,4}", "[a-c-]", " ",
        "#",   "/",   "if", "(ab", "c)",  "!",   "_",    "{0,1}",   "{1,}",  "[\\]-]", "endif"};
    std::mt19937 random(1);
    int compiled = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string pattern;
        for (size_t i = random() % 8 + 1; i > 0; --i) {
            pattern += pieces[random() % pieces.size()];
        }
        const trex_ptr expression = stored(pattern);
        if (!expression) {
            continue;
        }
        ++compiled;
        std::string reason;
        const std::string text = pattern_of_nodes(*expression, &reason);
        ASSERT_FALSE(text.empty()) << pattern << ": " << reason;
        const pattern_line line = pattern_reader().read(text);
        ASSERT_TRUE(line.is == kind::pattern) << pattern << " became " << text;
        const trex_ptr again = stored(line.text);
        ASSERT_TRUE(again) << pattern << " became " << text;
        ASSERT_EQ(nodes_text(*again), nodes_text(*expression)) << pattern << " became " << text;
    }
    EXPECT_GT(compiled, 2000);
}

TEST(pattern_of_nodes, damage_has_a_reason) {
    const struct {
        const char *name;
        const char *pattern;
        int32_t node;
        TRexNode becomes;
        const char *want;
    } cases[] = {
        {"a root that is a dot", "^a$", 0, {260, -1, -1, -1}, "node 0 is no group"},
        {"a link behind the end",
         "^a$",
         1,
         {267, -1, -1, 4},
         "a sequence needs a node, but links to 4"},
        {"a cycle", "^a$", 2, {'a', -1, -1, 1}, "node 1 is linked to more than once"},
        {"a repetition of nothing",
         "^a+$",
         3,
         {256, -1, 131071, -1},
         "node 3 needs a node, but links to -1"},
        {"no character",
         "^a$",
         2,
         {200, -1, -1, 3},
         "node 2 is of type 200, which can't stand there"},
        {"a type that is not used",
         "^a$",
         2,
         {265, -1, -1, 3},
         "node 2 is of type 265, which can't stand there"},
        {"a letter without a meaning",
         "^\\d$",
         2,
         {262, 'q', -1, 3},
         "no pattern compiles to exactly these nodes; the nearest is ^\\q$"},
        {"another number of a group",
         "^(a)$",
         2,
         {258, 3, 7, 4},
         "no pattern compiles to exactly these nodes; the nearest is ^(a)$"},
        {"no wrapping",
         "^a$",
         1,
         {'x', -1, -1, 2},
         "no pattern compiles to exactly these nodes; the nearest is xa$"},
    };
    for (const auto &c : cases) {
        const trex_ptr expression = stored(c.pattern);
        ASSERT_TRUE(expression && c.node < expression->nallocated) << c.name;
        expression->nodes[c.node] = c.becomes;
        std::string reason;
        EXPECT_EQ(pattern_of_nodes(*expression, &reason), "") << c.name;
        EXPECT_EQ(reason, c.want) << c.name;
    }
}

TEST(pattern_of_nodes, groups_as_deep_as_a_file_allows) {
    std::string nested = std::string(1000, '(') + "a" + std::string(1000, ')');
    const trex_ptr deepest = stored("^" + nested + "$");
    ASSERT_TRUE(deepest);
    std::string reason;
    EXPECT_EQ(pattern_of_nodes(*deepest, &reason), "^" + nested + "$");
    const trex_ptr deeper = stored(std::string(4090, 'a'));
    ASSERT_TRUE(deeper);
    for (int32_t i = 0; i + 1 < deeper->nallocated; ++i) {
        deeper->nodes[i] = {trex_op_expr, i + 1, i, -1};
    }
    EXPECT_EQ(pattern_of_nodes(*deeper, &reason), "");
    EXPECT_EQ(reason, "groups are nested deeper than 1000");
}

TEST(pattern_of_nodes, any_damage_ends_in_the_same_nodes_or_a_reason) {
    std::mt19937 random(2);
    const std::vector<std::string> patterns = {"^a[0-9]+\\.b$", "(a|b(?:c|d)){2,3}[^x-z\\d]",
                                               "foo|bar.*baz\\b$"};
    for (int round = 0; round < 20000; ++round) {
        const trex_ptr expression = stored(patterns[random() % patterns.size()]);
        ASSERT_TRUE(expression);
        for (size_t i = random() % 3 + 1; i > 0; --i) {
            TRexNode *node =
                &expression->nodes[random() % static_cast<size_t>(expression->nallocated)];
            int32_t *const fields[] = {&node->type, &node->left, &node->right, &node->next};
            const int32_t values[] = {
                -1,  0,   1,   3,   7,   92,        98,        256,
                257, 258, 261, 264, 269, INT32_MIN, INT32_MAX, static_cast<int32_t>(random())};
            *fields[random() % 4] = values[random() % std::size(values)];
        }
        std::string reason;
        const std::string text = pattern_of_nodes(*expression, &reason);
        if (text.empty()) {
            ASSERT_FALSE(reason.empty());
            continue;
        }
        const trex_ptr again = stored(pattern_reader().read(text).text);
        ASSERT_TRUE(again) << text;
        ASSERT_EQ(nodes_text(*again), nodes_text(*expression)) << text;
    }
}

} // namespace
} // namespace quillfence::data_files
