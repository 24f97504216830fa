// The files of a log: itself, and what rotation has made of it.
//
//     decisions.log                      the newest
//     decisions.log.1, decisions.log.2.gz      older with the number
//     decisions.log-20261121.gz          by their dates
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "open_file.h"

namespace quillfence::decision {

// The log's files, the oldest first; the path itself is the last, also when it is not there. Files
// that other programs than gzip have compressed are among them. error (may be null) receives 0, or
// why the folder can't be read.
std::vector<std::string> rotated_logs(const std::string &path, uint32_t *error = nullptr);

struct opened_log {
    std::string path;
    std::unique_ptr<data_files::open_file> file; // null: to be opened when it is its turn
};

struct opened_logs {
    std::vector<opened_log> files; // the oldest first, none of them twice
    std::string failed;            // the file that can't be opened; "" when all is well
    uint32_t error = 0;            // and why
};

// Opens logs, each with what rotation has made of it or alone, all before the first is read: what
// is rotated later is read all the same, once. "-" stands for itself and is not opened.
opened_logs open_logs(const std::vector<std::string> &paths, bool with_rotated);

} // namespace quillfence::decision
