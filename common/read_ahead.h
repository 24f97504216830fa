// Reading a file in large pieces: of a piece in memory, what lies in [begin, end) has been read and
// not yet been given out.
#pragma once

#include <cstring>

namespace quillfence {

// Moves what is left to the front of the piece, so that there is room behind it to read into.
template <class size>
void move_rest_to_front(void *piece, size *begin, size *end) {
    const size left = *end - *begin;
    memmove(piece, static_cast<char *>(piece) + *begin, left);
    *begin = 0;
    *end = left;
}

} // namespace quillfence
