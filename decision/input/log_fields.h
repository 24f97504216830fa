// Members of a log line that are told apart by what stands between them, where what stands in them
// may look the same: every way to read the line is looked for.
#pragma once

#include <span>
#include <string_view>
#include <vector>

namespace quillfence::decision {

struct log_field {
    std::string_view end; // what stands behind it; "" for the last: it goes to the end of the text
    bool (*accepts)(std::string_view value); // null: anything
};

enum class log_readings { none, one, several };

// The values of the fields, which follow each other from the beginning of the text. *values is
// those of the first way that was found. Bounded: a line on which too many ways lead nowhere counts
// as one with several.
log_readings split_log_fields(std::string_view text, std::span<const log_field> fields,
                              std::vector<std::string_view> *values);

} // namespace quillfence::decision
