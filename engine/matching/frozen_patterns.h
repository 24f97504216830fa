// A file of compiled patterns that was read beforehand. Most expressions end in literals, a domain
// as a rule, and match no name that ends differently; so they are found by the name's end, and the
// others are tried one by one:
//
//     pattern_walk walk;
//     TRex expression = {};
//     for (frozen_patterns_begin(patterns, name, end, &walk); frozen_patterns_next(&walk,
//     &expression);)
//
// gives the expressions that may match, in the file's order. Left out are those alone for which the
// matcher would say no without a line (required_ending and possible_last_characters in tiny_rex.h).
// Only a file whose blocks are all sound has this form; any other is walked through, as a file is.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tiny_rex.h"

namespace quillfence {

struct frozen_patterns;

// What there is of a file's bytes, which are borrowed as long as it lives, and aligned as malloc
// does.
//   made  receives the form, which frozen_patterns_free releases; null when the file is not sound
// False without memory.
bool frozen_patterns_make(const char *bytes, uint64_t size, frozen_patterns **made);
void frozen_patterns_free(frozen_patterns *patterns); // null is accepted

size_t frozen_patterns_size(const frozen_patterns *patterns); // in bytes of memory
uint32_t frozen_patterns_count(const frozen_patterns *patterns);
// Lends the nodes of one expression, by its place in the file from 0, to the record.
void frozen_patterns_lend(const frozen_patterns *patterns, uint32_t index, TRex *expression);

// A walk; only the functions below touch the fields but index.
inline constexpr uint32_t most_candidates = 256;
struct pattern_walk {
    const frozen_patterns *patterns;
    uint32_t index; // of the expression that was given out last
    bool all;       // too many were found: each is tried
    uint32_t next_of_all;
    uint32_t next_of_rest; // of those without a required ending
    const char *last;      // character of the name; null for an empty one
    uint32_t at;           // in found
    uint32_t found_count;
    uint32_t found[most_candidates]; // by the name's end, in order
};

void frozen_patterns_begin(const frozen_patterns *patterns, const char *name, const char *end,
                           pattern_walk *walk);
// Lends the nodes of the next expression to the record. False at the end.
bool frozen_patterns_next(pattern_walk *walk, TRex *expression);

} // namespace quillfence
