#include "line_reader.h"

#include <algorithm>
#include <cstring>

#include "read_ahead.h"

namespace quillfence {

void begin_lines(line_reader *in, vc_handle file, uint32_t limit, bool crlf_is_lf) {
    in->file = file;
    in->rest = nullptr;
    in->rest_size = 0;
    in->limit = limit;
    in->crlf_is_lf = crlf_is_lf;
    in->error = 0;
    in->at_end = false;
    in->begin = 0;
    in->end = 0;
    in->borrowed = false;
}

void begin_lines_of(line_reader *in, const char *bytes, uint64_t size, uint32_t limit,
                    bool crlf_is_lf) {
    begin_lines(in, vc_invalid_handle, limit, crlf_is_lf);
    in->rest = bytes;
    in->rest_size = size;
}

static uint32_t take_from_memory(line_reader *in, char *to, uint32_t room) {
    const auto moved = static_cast<uint32_t>(std::min<uint64_t>(room, in->rest_size));
    memcpy(to, in->rest, moved);
    in->rest += moved;
    in->rest_size -= moved;
    return moved;
}

// Reads on behind what is left.
static void fill(line_reader *in) {
    move_rest_to_front(in->piece, &in->begin, &in->end);
    char *const to = in->piece + in->end;
    const uint32_t room = line_piece_size - in->end;
    uint32_t moved = 0;
    if (in->rest) {
        moved = take_from_memory(in, to, room);
    } else {
        in->error = platform::file_read(in->file, to, room, &moved);
    }
    in->end += moved;
    in->at_end = in->error || !moved;
}

// Gives out the next length bytes as a line; taken includes the line end.
static char *give_line(line_reader *in, uint32_t length, uint32_t taken) {
    char *const line = in->piece + in->begin;
    in->begin += taken;
    in->borrowed = taken == length;
    in->borrowed_byte = line[length];
    line[length] = '\0';
    return line;
}

char *next_line(line_reader *in, uint32_t *length) {
    if (in->borrowed) {
        in->piece[in->begin] = in->borrowed_byte;
        in->borrowed = false;
    }
    // A line end behind the window belongs to a later piece of the line.
    const uint32_t window = in->limit + (in->crlf_is_lf ? 1 : 0);
    for (;;) {
        const char *const start = in->piece + in->begin;
        const uint32_t seen = std::min(in->end - in->begin, window);
        if (const void *const found = memchr(start, '\n', seen)) {
            const auto raw = static_cast<uint32_t>(static_cast<const char *>(found) - start);
            const uint32_t text = raw && start[raw - 1] == '\r' ? raw - 1 : raw;
            if (!in->crlf_is_lf || text < in->limit) {
                *length = text;
                return give_line(in, text, raw + 1);
            }
        }
        if (seen == window || (in->at_end && seen && !in->error)) {
            *length = std::min(seen, in->limit);
            return give_line(in, *length, *length);
        }
        if (in->at_end) {
            return nullptr;
        }
        fill(in);
    }
}

} // namespace quillfence
