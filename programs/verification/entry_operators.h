// Entries of the white and black lists in which an operator of the engine's expressions does
// something else than the entry says.
#pragma once

#include <optional>
#include <string>

#include "verify.h"

namespace quillfence::verification {

// What is odd about an entry with a "*" that the engine compiles: it does not match what it says
// when every "*" in it stands for some text and all else for itself, or it is written as an
// expression in which "." and ".*" are what they are not in a list. What can only be meant as an
// expression, such as a class of characters, is left alone.
std::optional<problem> why_defeated(const std::string &entry);

} // namespace quillfence::verification
