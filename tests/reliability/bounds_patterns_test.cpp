// Patterns that would not come to an end by themselves.
#include <algorithm>
#include <string>

#include "failing_memory.h"
#include "log_capture.h"
#include "tiny_rex.h"

namespace quillfence::testing {
namespace {

class bounds_patterns : public logged_test {};

constexpr uint32_t most_steps = 50'000'000;

std::string repeated(const std::string &piece, int times) {
    std::string text;
    while (times-- > 0) {
        text += piece;
    }
    return text;
}

// A match that fails, as the subject lacks the character at the pattern's end; that is a class, for
// the end of a subject is compared with literals beforehand.
struct hopeless {
    std::string pattern;
    std::string subject;
};

// Matches without asking for memory; returns the steps.
uint32_t steps_of(const hopeless &c) {
    const trex_ptr expression(trex_compile_ex(c.pattern.c_str(), trex_fold_case));
    EXPECT_NE(expression, nullptr);
    if (!expression) {
        return 0;
    }
    const unsigned long before = allocations_made();
    EXPECT_EQ(trex_match(expression.get(), c.subject.c_str()), 0);
    EXPECT_EQ(allocations_made() - before, 0U);
    return expression->steps;
}

TEST_F(bounds_patterns, most_are_done_with_few_steps_a_character) {
    const std::string subject = repeated("a", 20'000);
    const std::string other_subject = repeated("ab", 10'000);
    const hopeless cases[] = {
        {"^(a*)*[b]$", subject},
        {"^((a*)*)*[b]$", subject},
        {"^(((a+)+)+)+[b]$", subject},
        {"^(a|a)*[b]$", subject},
        {"^(a|aa)+[b]$", subject},
        {"^(a|ab|b)*[c]$", other_subject},
        {"^([a-z]+)*[1]$", subject},
        {"(.*)*[x]", subject},
        {"(.*.*.*.*)*[x]", subject},
        {".*.*.*.*.*.*[x]", subject},
        {"a.*a.*a.*a.*a.*[b]", subject},
        {repeated("a.*", 20) + "[b]", subject},
        {repeated("[a-z].*", 300) + "[1]", subject},
        {"^(((a{1,100}){1,100}){1,100}){1,100}[b]$", subject},
        {"^((a{100}){100}){100}[b]$", subject},
        {"^((((a{0,65534}){0,65534}){0,65534}){0,65534})[b]$", subject},
        {"^a{20000}[b]$", subject},
        {"^(" + repeated("a|", 2000) + "a)*[b]$", subject},
    };
    for (const hopeless &c : cases) {
        SCOPED_TRACE(c.pattern.substr(0, 60));
        EXPECT_LE(steps_of(c), 25 * c.subject.size());
    }
}

// Every branch at every place, and every group at every place.
TEST_F(bounds_patterns, long_and_deep_ones_cost_their_nodes_at_each_character) {
    const hopeless cases[] = {
        {"^(" + repeated("c|", 2000) + "a)*[b]$", repeated("a", 3000)},
        {repeated("(", 900) + "a" + repeated(")", 900) + "[b]", repeated("a", 900)},
        {repeated("(", 900) + "a*" + repeated(")*", 900) + "[b]", repeated("a", 900)},
        {"^(x+x+)+[y]$", repeated("x", 2000)}, // at each place all that is behind it
    };
    for (const hopeless &c : cases) {
        SCOPED_TRACE(c.pattern.substr(0, 60));
        EXPECT_LE(steps_of(c), 3 * std::max(c.pattern.size(), c.subject.size()) * c.subject.size());
    }
}

TEST_F(bounds_patterns, the_others_end_at_the_step_limit_with_a_line) {
    const hopeless cases[] = {
        {"(x+x+)+y", repeated("x", 2000)},
        {"^" + repeated("(a?)", 40) + "(b)$", repeated("a", 40) + "cb"},
    };
    for (const hopeless &c : cases) {
        SCOPED_TRACE(c.pattern.substr(0, 60));
        EXPECT_EQ(steps_of(c), most_steps);
        EXPECT_EQ(log.errors(), lines{"__trex_matchnode: regex takes too many steps"});
    }
}

// Each optional group looks ahead into all that follow it.
TEST_F(bounds_patterns, too_deep_a_recursion_is_a_line) {
    EXPECT_LE(steps_of({"^" + repeated("(a?)", 20'000) + "[b]$", repeated("a", 20'000)}),
              1'000'000U);
    EXPECT_EQ(log.errors(), lines{"__trex_matchnode: corrupt regex: nodes form a cycle"});
}

TEST_F(bounds_patterns, groups_that_are_too_deep_do_not_compile) {
    const std::string pattern = repeated("(", 1001) + "a" + repeated(")", 1001);
    EXPECT_EQ(trex_compile_ex(pattern.c_str(), trex_fold_case), nullptr);
    EXPECT_EQ(log.errors(), lines{"__trex_element: groups are nested deeper than 1000"});
}

} // namespace
} // namespace quillfence::testing
