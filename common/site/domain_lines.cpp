#include "domain_lines.h"

#include <cstring>

#include "read_ahead.h"

namespace quillfence {

static constexpr uint32_t line_size = 1023; // bytes of a line, without a terminator

static uint32_t take_from_memory(domain_lines *in, size_t room) {
    const size_t taken = in->rest_size < room ? in->rest_size : room;
    memcpy(in->bytes + in->end, in->rest, taken);
    in->rest += taken;
    in->rest_size -= taken;
    return static_cast<uint32_t>(taken);
}

// Sees to it that a whole line is there, unless the file ends before.
static bool fill(domain_lines *in) {
    if (in->at_end || in->end - in->begin >= line_size) {
        return true;
    }
    move_rest_to_front(in->bytes, &in->begin, &in->end);
    uint32_t delivered = 0;
    const size_t room = sizeof in->bytes - in->end;
    if (in->rest) {
        delivered = take_from_memory(in, room);
    } else if (!vc_read_nonblock(in->file, in->bytes + in->end, static_cast<int64_t>(room), 1, 0,
                                 &delivered)) {
        return false;
    }
    in->end += delivered;
    in->at_end = delivered < room;
    return true;
}

const char *take_domain_line(domain_lines *in, size_t *length) {
    if (!fill(in)) {
        return nullptr;
    }
    const char *const line = in->bytes + in->begin;
    const size_t left = in->end - in->begin;
    const size_t window = left < line_size ? left : line_size;
    if (!window || !*line) {
        return nullptr;
    }
    const auto *const newline = static_cast<const char *>(memchr(line, '\n', window));
    const size_t reach = newline ? static_cast<size_t>(newline - line) : window;
    *length = strnlen(line, reach);
    const bool ended = newline && *length == reach;
    in->begin += ended ? reach + 1 : window; // also what stands behind a NUL, as in vc_readline
    return line;
}

} // namespace quillfence
