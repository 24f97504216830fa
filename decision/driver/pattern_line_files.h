// What a record says of expressions besides their numbers, for a whole configuration: the files of
// lines that stand beside its pattern files (pattern_lines.h), read once like it, and the patterns
// as text. For explain_options, by whoever judges many transactions.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "frozen_files.h"
#include "pattern_lines.h"

namespace quillfence::decision {

class pattern_line_files {
  public:
    // Of all pattern files of the configuration. Throws std::bad_alloc.
    explicit pattern_line_files(const frozen_files &of);

    // Of the pattern file at this path; null when the configuration has none there.
    const data_files::pattern_lines *find(const std::string &path) const;

    // The text of one expression, by its number from 1; null when it is not known here.
    const std::string *text_of(std::string_view path, uint32_t expression) const;

  private:
    std::map<std::string, data_files::pattern_lines> files_;
    std::map<std::string, std::vector<std::string>, std::less<>> texts_;
};

} // namespace quillfence::decision
