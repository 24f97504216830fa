// What a pattern says that it does not do here: patterns are mostly written for other libraries.
// docs/formats/compiled-patterns.md has the table of what reads differently.
#pragma once

#include <string>
#include <vector>

namespace quillfence::data_files {

// A warning for each kind of thing in a pattern that compiles; none where a node fails the check,
// which has a warning of its own. What a warning claims is so, and a pattern that it tells to write
// compiles and has no warning itself.
//
//   foo|bar        a bar outside parentheses, unless each part has "^" or ".*" in front and "$" or
//                  ".*" behind
//   ^(.*b)$        parts that match nothing at all, and patterns that do not
//   (a[0-9]*-)b    a "*" that takes nothing, as no end can be found behind it
//   [.-_]          a range that has letters between its bounds and does not hold them
//   [0-9.[a-z]     a "[" inside a class; also [[:alpha:]]. Not [[], which says what it does
//   a++ .*?        a second repetition
//   \Aa a\Z \1     what other libraries know
//   \x41 \ldsl     letter classes that look like the code of a character, or like a word's first
//                  letter with a backslash too many
//   [des]          letters that a class lists singly, which it takes in that case only
//   ^(a|ab)c       names that the parts of the pattern would take and the pattern does not: with
//   the
//                  name, which was matched to find out. Not all such patterns are found
std::vector<std::string> warnings_about(const std::string &pattern);

} // namespace quillfence::data_files
