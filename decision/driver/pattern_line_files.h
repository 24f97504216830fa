// The files of lines that stand beside a configuration's pattern files (pattern_lines.h), read once
// like it: for explain_options, by whoever judges many transactions.
#pragma once

#include <map>
#include <string>

#include "frozen_files.h"
#include "pattern_lines.h"

namespace quillfence::decision {

class pattern_line_files {
  public:
    // Reads those of all pattern files of the configuration. Throws std::bad_alloc.
    explicit pattern_line_files(const frozen_files &of);

    // Of the pattern file at this path; null when the configuration has none there.
    const data_files::pattern_lines *find(const std::string &path) const;

  private:
    std::map<std::string, data_files::pattern_lines> files_;
};

} // namespace quillfence::decision
