// A decision record for people, on a terminal or in a mail: what was decided, what decided it, then
// all the rest. Lines are at most as wide as asked for, printable ASCII but for colour codes, and
// colour never is the only thing that tells something.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "decision_record.h"
#include "text_page.h"

namespace quillfence::programs {

// The text ends in a line feed.
std::string explain_text(const decision::decision_record &record, const text_options &options);

// Everything about one rule; nothing when the record has no rule of that name.
std::optional<std::string> explain_rule_text(const decision::decision_record &record,
                                             std::string_view rule, const text_options &options);

} // namespace quillfence::programs
