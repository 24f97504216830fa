// What the lines of a list file mean; for the lookup and the editor alike.
#pragma once

#include <cstdint>

#include "vc_text.h"

namespace quillfence {

inline constexpr uint32_t longest_list_line = 1022; // its LF counted

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
