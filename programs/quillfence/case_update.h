// Corrects what a case expects, in the text of its file.
#pragma once

#include <string>
#include <string_view>

#include "expectation.h"

namespace quillfence::programs {

// The text with another expectation; every byte of it that says something else stays as it is. Of
// members that stood there only the values that differ are replaced; a case without "expect" gets
// it as its last member, on a line of its own where the members stand on lines of their own.
//   text   of a case
//   stood  what it expects
//   now    what it shall expect: the same members, or where nothing stood, verdict, by and rule
// Throws a failure when the new text would not be the same case with that expectation.
std::string with_expectation(std::string_view text, const decision::expectation &stood,
                             const decision::expectation &now);

} // namespace quillfence::programs
