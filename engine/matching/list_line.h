// What the lines of a list file mean; for the lookup and the editor alike.
#pragma once

#include "vc_text.h"

namespace quillfence {

// The line without its leading white space.
inline const char *pattern_of_line(const char *line) {
    while (is_space(*line)) {
        ++line;
    }
    return line;
}

// Whether such a pattern never matches: a blank line, or one that begins with "#".
constexpr bool is_comment(const char *pattern) {
    return !*pattern || *pattern == '#';
}

} // namespace quillfence
