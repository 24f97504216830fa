// The lines of the mail server's table of its domains: of a file, or of bytes in memory.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vc_file.h"

namespace quillfence {

// The file in pieces that hold many lines, because vc_readline asks the system three times a line.
// Cleared, with a file or bytes; only take_domain_line touches the other fields.
struct domain_lines {
    vc_handle file;
    const char *rest; // in place of the file: bytes that are in memory, borrowed
    size_t rest_size;
    char bytes[16384];
    size_t begin;
    size_t end; // what has been read and not yet taken is [begin, end)
    bool at_end;
};

// Takes the next line, which is not terminated; null at the end of the file. It is read as
// vc_readline with 1023 bytes a line would.
const char *take_domain_line(domain_lines *in, size_t *length);

} // namespace quillfence
