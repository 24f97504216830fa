// The forms in which a batch run writes a decision: one line each, with its end.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "decision_record.h"

namespace quillfence::decision {

enum class batch_form : uint8_t {
    brief, // the decision record's short form
    whole, // and its whole form
    line,  // the replayer's line
    tsv,   // columns with tabs between them
};

// What stands in front of all lines: the names of the columns, "" for other forms.
std::string_view batch_heading(batch_form form);

// Appends the record's line. False when that is an error line: a record without the replayer's
// lists has no replayer's line.
bool append_record(std::string &out, batch_form form, const decision_record &record, uint64_t line,
                   std::string_view input);

// Appends a column of a table: what stands between columns and rows is escaped.
void append_column(std::string &out, std::string_view text);

// Appends a line that tells what is wrong with an input: {"error":"...","file":"...","line":7}, or
// the columns of a table with the verdict "error". input is "" where there is only one.
void append_problem(std::string &out, batch_form form, std::string_view text, uint64_t line,
                    std::string_view input);

} // namespace quillfence::decision
