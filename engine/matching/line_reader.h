// Lines of a text file, read in large pieces: one system call a piece, no allocation.
#pragma once

#include <cstdint>

#include "vc_file.h"

namespace quillfence {

inline constexpr uint32_t line_piece_size = 32768;

// Lives on the reader's stack. Only begin_lines and next_line touch the fields.
struct line_reader {
    vc_handle file;   // borrowed
    const char *rest; // in place of the file: bytes that are in memory already, borrowed
    uint64_t rest_size;
    uint32_t limit;  // the most characters of a line, its line end counted
    bool crlf_is_lf; // whether CR LF counts as one character of the limit, or as two
    uint32_t error;  // Win32 number of the read that failed; 0 also at the end of the file
    bool at_end;     // nothing more to read into the piece
    uint32_t begin;  // what is read but not yet given out lies between begin and end
    uint32_t end;
    bool borrowed; // a byte of the next line gave way to the last line's NUL
    char borrowed_byte;
    char piece[line_piece_size + 1];
};

// Starts at the file's current position. limit is at most 4096.
void begin_lines(line_reader *in, vc_handle file, uint32_t limit, bool crlf_is_lf);

// The same over bytes in memory.
void begin_lines_of(line_reader *in, const char *bytes, uint64_t size, uint32_t limit,
                    bool crlf_is_lf);

// The next line without its line end (LF or CR LF), NUL-terminated, valid until the next call.
// A line of more than limit characters comes in several pieces, each a line of its own: the line
// end counts, so limit characters and an LF give a line and an empty line. A CR that is not
// followed by LF, a NUL and a 0x1A are bytes as any other.
//   length  receives the line's length; differs from strlen where the line holds a NUL
// Null at the end of the file, and when a read failed (then in->error is set). Logs nothing.
char *next_line(line_reader *in, uint32_t *length);

} // namespace quillfence
