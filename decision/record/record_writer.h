// A decision record as JSON, in the document's order of members. docs/decision-record.md tells of
// its two forms.
#pragma once

#include <string>

#include "decision_record.h"
#include "json_writer.h"

namespace quillfence::decision {

enum class record_form : uint8_t {
    whole,
    // Without the list of files, the times of the rules, and the rules about which there is nothing
    // to tell.
    brief,
    // As a case has it that was written by hand: without what is empty.
    by_hand,
};

// Appends the record; no line end behind it. What "extra" holds must be JSON on one line. One
// buffer, cleared and used again, costs no allocation a record.
void write_record(std::string &out, const decision_record &record, record_form form,
                  json_layout layout = json_layout::one_line);

// Likewise a transaction alone, as an object.
void write_transaction(std::string &out, const transaction &of,
                       json_layout layout = json_layout::one_line);

// Whether the brief form has the rule: whether it hit, exempted, or could not be judged in any of
// its outcomes.
bool is_told_briefly(const rule_record &rule);

} // namespace quillfence::decision
