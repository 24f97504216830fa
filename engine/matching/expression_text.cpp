#include "expression_text.h"

#include <cstdlib>

namespace quillfence {

char *expression_of_wildcards(const char *pattern) {
    size_t size = 3; // "^", "$" and the NUL
    for (const char *c = pattern; *c; ++c) {
        size += *c == '*' || *c == '.' ? 2 : 1;
    }
    char *const expression = static_cast<char *>(malloc(size));
    if (!expression) {
        return nullptr;
    }
    char *out = expression;
    *out++ = '^';
    for (const char *c = pattern; *c; ++c) {
        if (*c == '*') {
            *out++ = '.';
        } else if (*c == '.') {
            *out++ = '\\';
        }
        *out++ = *c;
    }
    *out++ = '$';
    *out = '\0';
    return expression;
}

} // namespace quillfence
