// Conditions of mail servers' lists, "if /condition/", around patterns: a compiled file can't say
// that, so the condition becomes part of each pattern, where patterns can be found that take
// exactly the names that both take. That they do is proved (pattern_language.h), not assumed.
//
//     if /\.example\.net$/    ^dsl-       becomes ^dsl-.*\.example\.net$
//     if /^mail/              ^mail[0-9]  stays, since it takes no name that the condition does not
//     if /dsl/                pool        can't be folded: which of the two comes first?
#pragma once

#include <string>
#include <vector>

namespace quillfence::data_files {

struct folded_pattern {
    enum class kind {
        folded,   // into these patterns, together
        nothing,  // no name is taken by both
        unfolded, // no such patterns are known
    };
    kind is;
    std::vector<std::string> patterns{};
};

// The patterns for one pattern under one condition; under a negated one ("if !/.../") for the names
// that it does not take. Both compile.
folded_pattern fold_condition(const std::string &condition, bool negated,
                              const std::string &pattern);

// The same for several patterns that together stand for one.
folded_pattern fold_condition(const std::string &condition, bool negated,
                              const std::vector<std::string> &patterns);

// Whether a pattern has a bar outside parentheses, which makes of a "find this or that" something
// else: a|b is ".*a" or "b.*$".
bool has_bar_outside(const std::string &pattern);

} // namespace quillfence::data_files
