// Which names a pattern takes, as a finite automaton: enough to prove that one pattern takes all
// that another does, or that two together take what a third one does. Patterns do not behave as
// those of other libraries (engine/matching/tiny_rex_match.cpp), so that an automaton is either
// exact, for the shapes where the engine's way comes to the same, or takes more than the pattern.
//
// It is exact for an expression whose root is one sequence that ends in an end node and holds
//   - single characters and classes, "^", and ".*" with something behind it that takes a character;
//   - + ? {n} {n,m} of a character, and * where what follows can't begin with that character;
//   - groups, also repeated with + ? {n} {n,m}, that end in one place only from where they begin:
//     sequences of characters, {n}, + and {n,m} of a character that what follows can't begin with,
//     and further such groups; between bars, branches of one length or of which no two can match
//     at one place. Where all that follows the group is ".*" and the end, any branches of these.
// The names are of any bytes and length; that a match may run out of steps is left aside.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tiny_rex.h"

namespace quillfence::data_files {

// A step from one state to another.
struct pattern_edge {
    enum class kind { free, character, beginning, end }; // beginning, end: of the name
    kind is;
    size_t to;
    size_t characters = 0; // of a character: which set
};

struct pattern_language {
    std::vector<std::vector<pattern_edge>> states; // the first one is where a name begins
    size_t last = 0;                               // where it is taken
    std::vector<character_set> sets;
    bool is_known = false; // false: the pattern is too large, and nothing is known of it
    bool is_exact = false; // else it may take more than the pattern does
};

// Of an expression that was compiled with trex_fold_case, all of whose nodes are good.
pattern_language language_of(const TRex &expression);

// Whether it takes no name at all, and so the pattern matches none.
bool takes_nothing(const pattern_language &language);

// Short names that it takes, so that each step for a character that some name takes is taken by one
// of them, as far as printable characters and a bounded effort go. A step that a repetition takes
// again is taken once more than the repetition needs, so that no name is longer than {n,m} says,
// though inside groups the automaton knows no m.
std::vector<std::string> names_of(const pattern_language &language);

// Whether something holds for every name: it gets to know which of the languages take the name.
// False also when that can't be found out with reasonable effort.
bool holds_always(const std::vector<const pattern_language *> &languages,
                  const std::function<bool(const std::vector<bool> &)> &holds);

} // namespace quillfence::data_files
