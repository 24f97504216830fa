// What a record says of files beyond what the engine saw: their sizes and digests, and the lists
// that compiled patterns were made from.
#pragma once

#include "explain.h"
#include "pattern_line_files.h"

namespace quillfence::decision {

// Of larger files no digest is made, unless the record is captured.
inline constexpr uint64_t largest_digested_file = 8u << 20;

// Adds size and digest to the files that are there.
void weigh_files(std::vector<config_file> *files, const explain_options &options);

// Adds list and line to every expression of the record's rules whose file has a current file of
// lines beside it (pattern_lines.h), and a note about one that is stale or wrong.
void name_pattern_lists(decision_record *record, const explain_options &options);

} // namespace quillfence::decision
