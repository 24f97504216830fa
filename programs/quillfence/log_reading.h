// Reads logs from their beginning to their end.
#pragma once

#include <string>
#include <vector>

#include "log_bytes.h"
#include "log_files.h"
#include "log_sifter.h"

namespace quillfence::programs {

// The bytes of a file, or of standard input, until somebody wants the program to end. Borrowed.
decision::log_bytes::source log_source(platform::file_handle from);

struct log_reading {
    bool interrupted = false;
    bool gone = false; // whoever reads the output wants no more
};

// Opens the logs. Throws a failure for one that can't be opened.
decision::opened_logs open_logs_or_fail(const std::vector<std::string> &paths, bool with_rotated);

// Sifts all lines, the oldest first. A file that can't be read to its end is refused, and the next
// one goes on. go_on is asked now and then, with a bar on standard error where that is visible.
log_reading read_logs(decision::opened_logs &logs, log_sifter &sifter, bool visible,
                      const std::function<bool()> &go_on);

} // namespace quillfence::programs
