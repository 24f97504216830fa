// Conditions folded into patterns, and the automata that prove it, against the slow matcher.
#include "pattern_conditions.h"

#include <cstdlib>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "engine_messages.h"
#include "pattern_language.h"
#include "pattern_list.h"
#include "slow_matcher.h"

namespace quillfence::data_files {
namespace {

using kind = folded_pattern::kind;

bool slow_matches(const std::string &pattern, const std::string &name) {
    const std::optional<testing::slow_nodes> nodes = testing::slow_parse(pattern);
    EXPECT_TRUE(nodes) << pattern;
    return nodes && testing::slow_match(*nodes, name, true).matched;
}

trex_ptr compiled(const std::string &pattern) {
    engine_messages unheard;
    return trex_ptr(trex_compile_ex(pattern.c_str(), trex_fold_case));
}

bool has_bad_nodes(const TRex &expression) {
    engine_messages unheard;
    for (int32_t i = 0; i < expression.nsize; ++i) {
        if (!__trex_node_is_valid(&expression, &expression.nodes[i])) {
            return true;
        }
    }
    return false;
}

// A walk over the states, one character after another.
bool takes(const pattern_language &language, const std::string &name) {
    using edge = pattern_edge::kind;
    std::set<size_t> at = {0};
    for (size_t i = 0;; ++i) {
        for (size_t before = 0; before != at.size();) {
            before = at.size();
            for (const size_t state : std::set<size_t>(at)) {
                for (const pattern_edge &e : language.states[state]) {
                    if (e.is == edge::free || (e.is == edge::beginning && i == 0) ||
                        (e.is == edge::end && i == name.size())) {
                        at.insert(e.to);
                    }
                }
            }
        }
        if (i == name.size()) {
            return at.count(language.last) != 0;
        }
        std::set<size_t> next;
        for (const size_t state : at) {
            for (const pattern_edge &e : language.states[state]) {
                if (e.is == edge::character && language.sets[e.characters].has(name[i])) {
                    next.insert(e.to);
                }
            }
        }
        at = std::move(next);
    }
}

class generator {
  public:
    size_t roll(size_t sides) {
        return std::uniform_int_distribution<size_t>(0, sides - 1)(dice_);
    }
    std::string name() {
        static const std::string letters = "aabb-1Ac";
        std::string text;
        for (size_t n = roll(12); n > 0; --n) {
            text += letters[roll(letters.size())];
        }
        return text;
    }
    // As lists have them, and stranger ones.
    std::string pattern(int depth) {
        static const std::vector<std::string> atoms = {"a",     "b",  "ab", "-",    "[a-b]", "1",
                                                       "\\d",   ".",  "A",  "[ab]", "[^a]",  ".*",
                                                       "[1-9]", "ba", "b",  "a",    "c",     "\\-"};
        static const std::vector<std::string> quantifiers = {"+",     "+",   "?",    "*",
                                                             "{1,2}", "{2}", "{2,}", "{0,2}"};
        std::string text;
        for (size_t n = 1 + roll(4); n > 0; --n) {
            if (depth > 0 && roll(4) == 0) {
                text += roll(2) ? "(" : "(?:";
                text += (roll(8) == 0 ? "^" : "") + pattern(depth - 1);
                for (size_t bars = roll(3); bars > 0; --bars) {
                    text += "|" + pattern(depth - 1) + (roll(8) == 0 ? "$" : "");
                }
                text += ")";
            } else {
                text += roll(30) == 0 ? "\\b" : roll(40) == 0 ? "$" : atoms[roll(atoms.size())];
            }
            if (roll(4) == 0) {
                text += quantifiers[roll(quantifiers.size())];
            }
        }
        return text;
    }
    std::string whole_pattern() {
        return (roll(3) == 0 ? "^" : "") + pattern(2) + (roll(3) == 0 ? "$" : "");
    }

  private:
    std::mt19937 dice_{19};
};

size_t rounds(size_t usual) {
    const char *const wanted = std::getenv("QUILLFENCE_EXHAUSTIVE");
    return wanted ? 50 * usual * static_cast<size_t>(std::atoi(wanted)) : usual;
}

// --- What the automata promise ---

TEST(pattern_language, takes_at_least_what_the_pattern_does_and_exactly_that_where_it_says_so) {
    generator random;
    size_t exact = 0;
    size_t matches = 0;
    for (size_t round = 0; round < rounds(3000); ++round) {
        const std::string pattern = random.whole_pattern();
        const trex_ptr expression = compiled(pattern);
        if (!expression || has_bad_nodes(*expression)) {
            continue;
        }
        const pattern_language language = language_of(*expression);
        ASSERT_TRUE(language.is_known) << pattern;
        exact += language.is_exact;
        const std::optional<testing::slow_nodes> nodes = testing::slow_parse(pattern);
        ASSERT_TRUE(nodes) << pattern;
        for (int i = 0; i < 25; ++i) {
            const std::string name = random.name();
            const testing::slow_answer answer = testing::slow_match(*nodes, name, true);
            const bool taken = takes(language, name);
            matches += answer.matched;
            ASSERT_TRUE(!answer.matched || taken) << pattern << " on " << name;
            ASSERT_TRUE(!language.is_exact || answer.endless || answer.matched == taken)
                << pattern << " on " << name << ": exact, but takes " << taken;
        }
    }
    EXPECT_GT(exact, rounds(3000) / 5);
    EXPECT_GT(matches, rounds(3000));
}

TEST(pattern_language, knows_the_shapes_that_lists_use) {
    const struct {
        const char *pattern;
        bool exact;
    } cases[] = {
        {"dsl", true},
        {"^mail[0-9]", true},
        {"\\.example\\.net$", true},
        {"^[0-9]+-[0-9]+\\.example$", true},
        {"^[0-9]{1,3}-x", true},
        {"(cable|dhcp|dyn(amic)?)", false}, // a "?" in a group looks at what is behind the group
        {"(cable|dhcp|dynamic)", true},
        {"([0-9]{4}|[0-9]+[^0-9]+[0-9]+|dhcp)", true},
        {"(^doc|cable)", true},
        {"(dsl|pool)\\.example\\.net$", true},
        {"(dsl|dsl-pool)\\.example\\.net$", false}, // dsl wins in front of dsl-pool
        {"(dsl|dsl-pool)", true},                   // which does not matter here
        {"^(a[0-9]+-){2}x", true},
        {"^([0-9]+\\.){4}x", true},
        {"^a*b", true},
        {"^a*ab", false},
        {"a|b", false},
        {"^(.*)b$", false},
        {"\\bdsl\\b", false},
        {"a\\$", false}, // no end
    };
    for (const auto &c : cases) {
        EXPECT_EQ(language_of(*compiled(c.pattern)).is_exact, c.exact) << c.pattern;
    }
}

TEST(pattern_language, gives_up_on_what_is_too_large) {
    const pattern_language language = language_of(*compiled("^(([a-z]{200}){200}){200}$"));
    EXPECT_FALSE(language.is_known);
    EXPECT_FALSE(holds_always({&language}, [](const std::vector<bool> &) { return true; }));
    const pattern_language sets = language_of(*compiled("a.{40}b.{40}$"));
    ASSERT_TRUE(sets.is_known);
    EXPECT_FALSE(holds_always({&sets}, [](const std::vector<bool> &) { return true; }))
        << "there are too many sets of states to look at";
}

// --- Folding ---

TEST(fold_condition, folds_what_it_can) {
    const struct {
        const char *condition, *pattern;
        kind want;
        std::vector<std::string> patterns;
    } cases[] = {
        // The pattern takes nothing that the condition does not.
        {"^abc", "^abcd", kind::folded, {"^abcd"}},
        {"^abc", "^abc[0-9]+$", kind::folded, {"^abc[0-9]+$"}},
        {"abc", "xabcx", kind::folded, {"xabcx"}},
        {"ABC", "^xabc", kind::folded, {"^xabc"}},
        {"[0-9]", "^a[0-9]{1,3}-", kind::folded, {"^a[0-9]{1,3}-"}},
        {"(dsl|[0-9]+-[0-9]+)",
         "^ip[0-9]{1,3}-[0-9]{1,3}\\.",
         kind::folded,
         {"^ip[0-9]{1,3}-[0-9]{1,3}\\."}},
        {"\\.net$",
         "^(dsl|dsl-pool)[0-9]*\\.example\\.net$",
         kind::folded,
         {"^(dsl|dsl-pool)[0-9]*\\.example\\.net$"}},
        {".*", "foo|bar", kind::folded, {"foo|bar"}},
        // The other way round.
        {"^mail\\.example$", "example", kind::folded, {"^mail\\.example$"}},
        // One behind the other.
        {"\\.example\\.net$", "^dsl-", kind::folded, {"^dsl-.*\\.example\\.net$"}},
        {"^dsl-", "\\.example\\.net$", kind::folded, {"^dsl-.*\\.example\\.net$"}},
        {"\\.example\\.net$", "dsl", kind::folded, {"dsl.*\\.example\\.net$"}},
        {"^a[0-9]+-", "b$", kind::folded, {"^a[0-9]+-.*b$"}},
        {"^ab.*", ".*c$", kind::folded, {"^ab.*c$"}},
        // They may share what lies between them.
        {"\\.example\\.net$",
         "^dsl[0-9]+\\.",
         kind::folded,
         {"^dsl[0-9]+\\..*\\.example\\.net$", "^dsl[0-9]+\\.example\\.net$"}},
        {"^ab", "bc$", kind::folded, {"^ab.*bc$", "^abc$"}},
        {"^aa", "aa$", kind::folded, {"^aa.*aa$", "^aaa$", "^aa$"}},
        // No name is taken by both.
        {"^mail", "^dsl", kind::nothing, {}},
        {"\\.net$", "\\.com$", kind::nothing, {}},
        // In either order.
        {"dsl", "pool", kind::folded, {"dsl.*pool", "pool.*dsl"}},
        {"abc", "^abd", kind::folded, {"^abd.*abc"}},
        // It can't be told, or not by patterns.
        {"^[a-c]b", "^.b[0-9]", kind::unfolded, {}},
        {"^a", "^.b", kind::unfolded, {}},
        {"\\bdsl", "dsl", kind::folded, {"\\bdsl"}},
        {"\\bdsl", "dsl-x", kind::unfolded, {}}, // nobody knows what \b takes
        {"^a{3,2}", "^a", kind::unfolded, {}},
        {"^a", "(", kind::unfolded, {}},
    };
    for (const auto &c : cases) {
        const folded_pattern got = fold_condition(c.condition, false, c.pattern);
        EXPECT_EQ(got.is, c.want) << c.condition << " " << c.pattern;
        EXPECT_EQ(got.patterns, c.patterns) << c.condition << " " << c.pattern;
    }
}

TEST(fold_condition, of_what_is_not_to_be_there) {
    const struct {
        const char *condition, *pattern;
        kind want;
    } cases[] = {
        {"^mail", "^dsl", kind::folded},
        {"\\.net$", "^[0-9]+\\.example\\.com$", kind::folded},
        {"^dsl", "^dsl-", kind::nothing},
        {"^mail", "dsl", kind::unfolded},
    };
    for (const auto &c : cases) {
        const folded_pattern got = fold_condition(c.condition, true, c.pattern);
        EXPECT_EQ(got.is, c.want) << c.condition << " " << c.pattern;
        EXPECT_EQ(got.patterns.size(), c.want == kind::folded ? 1u : 0u);
    }
}

// What the page promises: the patterns take the names that both take, and no others.
TEST(fold_condition, takes_the_names_that_both_take) {
    generator random;
    size_t counts[3] = {};
    size_t made = 0; // other patterns than the one that was there
    size_t hits = 0;
    for (size_t round = 0; round < rounds(2000); ++round) {
        const std::string condition = random.whole_pattern();
        // Half of them have something in common.
        const std::string pattern =
            random.roll(2) ? random.whole_pattern() : condition + random.pattern(1);
        if (!compiled(condition) || !compiled(pattern)) {
            continue;
        }
        const bool negated = random.roll(8) == 0;
        const folded_pattern folded = fold_condition(condition, negated, pattern);
        ++counts[static_cast<size_t>(folded.is)];
        if (folded.is == kind::unfolded) {
            continue;
        }
        made += folded.patterns != std::vector<std::string>{pattern} && !folded.patterns.empty();
        for (int i = 0; i < 40; ++i) {
            const std::string name = random.name();
            const bool want =
                slow_matches(condition, name) != negated && slow_matches(pattern, name);
            bool got = false;
            for (const std::string &one : folded.patterns) {
                got = got || slow_matches(one, name);
            }
            hits += want;
            ASSERT_EQ(got, want) << (negated ? "not " : "") << condition << " and " << pattern
                                 << " on " << name << ", folded into "
                                 << ::testing::PrintToString(folded.patterns);
        }
    }
    EXPECT_GT(counts[static_cast<size_t>(kind::folded)], rounds(2000) / 20);
    EXPECT_GT(counts[static_cast<size_t>(kind::nothing)], rounds(2000) / 200);
    EXPECT_GT(made, rounds(2000) / 100);
    EXPECT_GT(hits, rounds(2000) / 4);
}

TEST(fold_condition, several_stand_for_one) {
    const folded_pattern inner = fold_condition("^ab", false, "bc$");
    const folded_pattern both = fold_condition("^abc", false, inner.patterns);
    EXPECT_EQ(both.is, kind::unfolded) << "^ab.*bc$ may begin with abc";
    const folded_pattern outer = fold_condition("c$", false, inner.patterns);
    EXPECT_EQ(outer.patterns, inner.patterns);
    EXPECT_EQ(fold_condition("d$", false, inner.patterns).is, kind::nothing);
}

// --- Lists ---

struct read_list {
    std::vector<std::string> patterns; // "line pattern"
    std::vector<std::string> problems; // "line error: ..."
};

read_list read(const std::vector<std::string> &lines) {
    read_list got;
    pattern_list list([](const std::string &action) { return is_refusal(action); });
    for (size_t i = 0; i < lines.size(); ++i) {
        list.add(i + 1, lines[i]);
    }
    for (const list_pattern &line : list.finish()) {
        const std::string number = std::to_string(line.number);
        for (const std::string &pattern : line.patterns) {
            got.patterns.push_back(number + " " + pattern);
        }
        for (const list_problem &problem : line.problems) {
            got.problems.push_back(number + (problem.is_error ? " error: " : " warning: ") +
                                   problem.text);
        }
    }
    return got;
}

using texts = std::vector<std::string>;

TEST(pattern_list, conditions_become_part_of_the_patterns) {
    const read_list got = read({
        "/^a/ REJECT",
        "if /\\.example\\.net$/i",
        "/^dsl-/ REJECT",
        "  no, go away",
        "/^pool-/ REJECT",
        "if !/^mail/",
        "/^ip[0-9]+\\./ REJECT",
        "endif",
        "/^ok/ OK",
        "endif",
        "^b",
    });
    EXPECT_EQ(
        got.patterns,
        (texts{"1 ^a", "3 ^dsl-.*\\.example\\.net$", "5 ^pool-.*\\.example\\.net$",
               "7 ^ip[0-9]+\\..*\\.example\\.net$", "7 ^ip[0-9]+\\.example\\.net$", "11 ^b"}));
    EXPECT_EQ(got.problems, texts{});
}

TEST(pattern_list, keywords_in_any_letter_case) {
    const read_list got = read({
        "IF /\\.example\\.net$/",
        "/^dsl-/ REJECT",
        "If !/^mail/",
        "/^ip-/ REJECT",
        "EndIf",
        "ENDIF of the network",
        "^b",
    });
    EXPECT_EQ(got.patterns,
              (texts{"2 ^dsl-.*\\.example\\.net$", "4 ^ip-.*\\.example\\.net$", "7 ^b"}));
    EXPECT_EQ(got.problems, texts{});
}

TEST(pattern_list, what_can_not_be_folded_is_an_error_of_the_condition) {
    const read_list got = read({
        "if /^a/",
        "if /^[a-c]b/",
        "/^ab1/ REJECT",
        "/^.b[0-9]/ REJECT",
        "/^..1/ REJECT",
        "endif",
        "endif",
    });
    EXPECT_EQ(got.patterns, (texts{"3 ^ab1", "4 ^.b[0-9]", "5 ^..1"}))
        << "as they stand, for whoever goes on all the same";
    EXPECT_EQ(got.problems,
              (texts{"1 error: the condition can't be folded into 2 of the 3 patterns up to its "
                     "\"endif\", the first in line 4; write the condition into each pattern",
                     "2 error: the condition can't be folded into 2 of the 3 patterns up to its "
                     "\"endif\", the first in line 4; write the condition into each pattern"}));
}

TEST(pattern_list, what_no_name_can_be_is_left_out) {
    const read_list got = read({"if /\\.net$/", "/\\.com$/ REJECT", "/^a\\.net$/ REJECT", "endif"});
    EXPECT_EQ(got.patterns, texts{"3 ^a\\.net$"});
    EXPECT_EQ(got.problems,
              texts{"2 warning: the pattern takes no name that the condition in line 1 "
                    "lets through, and is left out"});
}

TEST(pattern_list, conditions_that_are_wrong) {
    const read_list got = read({
        "if /(/",
        "/^a/ REJECT",
        "endif",
        "if /dsl|pool/",
        "/^dsl1/ REJECT",
        "endif",
        "if /a/ REJECT",
        "endif",
        "endif",
        "if /^b/",
        "/^bc/ REJECT",
    });
    EXPECT_EQ(got.patterns, (texts{"2 ^a", "5 ^dsl1", "11 ^bc"}));
    EXPECT_EQ(got.problems,
              (texts{"1 error: the condition does not compile: failed to find expected character "
                     "[)]",
                     "4 error: the condition's bar stands outside parentheses, where it does not "
                     "mean \"or\"; write if /(dsl|pool)/",
                     "7 error: something stands behind the condition; write it into a line of its "
                     "own",
                     "9 error: \"endif\" without an \"if\" above it",
                     "10 error: there is no \"endif\" for this \"if\""}));
}

TEST(has_bar_outside, sees_those_outside_parentheses) {
    EXPECT_TRUE(has_bar_outside("a|b"));
    EXPECT_TRUE(has_bar_outside("^(a|b)$|c"));
    EXPECT_FALSE(has_bar_outside("(a|b)"));
    EXPECT_FALSE(has_bar_outside("a\\|b"));
    EXPECT_FALSE(has_bar_outside("[a|b]"));
}

} // namespace
} // namespace quillfence::data_files
