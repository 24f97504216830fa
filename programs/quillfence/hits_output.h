// The table of what each entry of the configuration was worth in a run.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "hit_tally.h"

namespace quillfence::programs {

enum class hits_form : uint8_t {
    table, // for people: file by file, the most useful entries of each, in 80 columns
    tsv,   // columns with tabs between them, their names in front
    json,  // an object a line
};

// Rows of one file stand together.
std::string hits_text(const std::vector<decision::hit_row> &rows, hits_form form);

} // namespace quillfence::programs
