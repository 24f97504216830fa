// Wildcard patterns of plain bytes and stars, which a list's wildcard lines nearly all are: they
// are answered without an expression.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quillfence {

struct plain_wildcards {
    const char *first_star;
    const char *last_star;
    size_t head; // how many characters stand before the first star
    size_t tail; // and behind the last
};

// Takes a pattern apart. False when it is not plain: it has no star, or operators or bytes that the
// engine does not compile, or no list line has room for it.
bool take_apart(const char *pattern, plain_wildcards *parts);

enum class plain_answer : uint8_t { fails, matches, not_plain };

// Whether a plain pattern matches the whole subject, letters in either case. It is exactly what the
// engine would answer (tests: quillfence-file, shortcut_agrees_with_the_engine).
plain_answer match_plain(const char *pattern, const char *subject);

} // namespace quillfence
