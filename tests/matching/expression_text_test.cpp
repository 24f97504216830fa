#include "expression_text.h"

#include <cstdlib>
#include <memory>
#include <string>

#include "log_capture.h"
#include "tiny_rex.h"

namespace quillfence::testing {
namespace {

using expression_text = logged_test;

using owned_expression = std::unique_ptr<TRex, decltype(&trex_free)>;

// Whether a text compiles to an expression with a node for this very character.
bool has_character(const std::string &text, char c) {
    const owned_expression expression(trex_compile_ex(("^" + text + "$").c_str(), trex_fold_case),
                                      trex_free);
    for (int32_t i = 0; expression && i < expression->nsize; ++i) {
        if (expression->nodes[i].type == c) {
            return true;
        }
    }
    return false;
}

// "]" and "}" close something, and stand for themselves where nothing is open.
TEST_F(expression_text, operators_are_those_of_the_compiler) {
    for (int code = 32; code <= 126; ++code) {
        const char c = static_cast<char>(code);
        SCOPED_TRACE(c);
        const bool is_itself = has_character(std::string("a") + c, c);
        EXPECT_EQ(is_itself, !is_expression_operator(c) || c == ']' || c == '}');
        if (is_expression_operator(c)) {
            EXPECT_TRUE(has_character(std::string("a\\") + c, c)) << "behind a backslash";
        }
    }
    log.take(); // what the compiler says of half a group
}

TEST_F(expression_text, wildcards) {
    static const struct {
        const char *pattern, *expression;
    } cases[] = {
        {"*", "^.*$"},
        {"*@example.com", "^.*@example\\.com$"},
        {"a**.b", "^a.*.*\\.b$"},
        {"user+tag*", "^user+tag.*$"}, // the operator stays one
        {"", "^$"},
    };
    for (const auto &c : cases) {
        const std::unique_ptr<char, decltype(&free)> expression(expression_of_wildcards(c.pattern),
                                                                free);
        EXPECT_STREQ(expression.get(), c.expression);
    }
}

TEST_F(expression_text, what_wildcard_patterns_mean_literally) {
    for (const char c : std::string("aZ0@-_.*/ ~")) {
        EXPECT_TRUE(is_plain_in_wildcards(c)) << c;
    }
    for (const char c : std::string("$()+?[\\]^{|}\t\x7F\x80\xFF")) {
        EXPECT_FALSE(is_plain_in_wildcards(c)) << c;
    }
}

} // namespace
} // namespace quillfence::testing
