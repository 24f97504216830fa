// What the characters of an expression's text mean, for those who write such texts.
#pragma once

#include "vc_text.h"

namespace quillfence {

// The characters that mean something else than themselves outside of a class; a backslash before
// one makes it stand for itself (test: expression_text, operators_are_those_of_the_compiler).
inline constexpr char expression_operators[] = "$()*+.?[\\]^{|}";

constexpr bool is_expression_operator(char c) {
    for (const char *op = expression_operators; *op; ++op) {
        if (c == *op) {
            return true;
        }
    }
    return false;
}

// The expression of a list's wildcard pattern, as a new string; null without memory. It matches
// the whole subject: "*" becomes ".*" and "." becomes "\.".
// Kept on purpose: every other operator keeps its meaning.
char *expression_of_wildcards(const char *pattern);

// Whether a wildcard pattern's character stands for what the list's page says and nothing else:
// printable, and no operator that the translation leaves alone.
constexpr bool is_plain_in_wildcards(char c) {
    return is_printable(c) && (!is_expression_operator(c) || c == '*' || c == '.');
}

} // namespace quillfence
