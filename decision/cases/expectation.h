// What a case expects of its decision, held against what came.
//
// An expectation's members hold the words and texts of the decision record as it is written: a text
// that is not UTF-8 may be expected as it is, or as the record shows it, with U+FFFD. An empty text
// says that there is none: "rule": "" is a decision that no rule made.
#pragma once

#include <string>
#include <vector>

#include "case_file.h"

namespace quillfence::decision {

// One member that is not as expected, in words: a text, "a or b" where any of them would do, "a, b"
// for a set, "(none)" for nothing at all.
struct mismatch {
    std::string what; // "verdict", "rules.from_blacklist"
    std::string expected;
    std::string came;
    bool operator==(const mismatch &) const = default;
};

// In the document's order; nothing when all is as expected.
std::vector<mismatch> compare(const expectation &expected, const decision_record &record);

// What a decision is in short: its verdict, by what, and the rule.
expectation expectation_of(const decision_record &record);

// The same members as an expectation that has come out wrong, where they have with what came. Of
// the members spam_hits and bms_hits that is nothing when the record has no report: they stay.
expectation corrected(const expectation &expected, const decision_record &record);

// The entry that decided, and the file that it stands in: of a list, a range ("low - high"), an
// expression, a block map (the network), a sender's networks (the domain), the registry (key and
// value), a folder (its name and the entry's). Both are "" when no entry decided.
struct deciding_entry {
    std::string file;
    std::string entry;
    bool operator==(const deciding_entry &) const = default;
};
deciding_entry entry_that_decided(const decision_record &record);
// The same of any source.
deciding_entry entry_in(const source &of);
// Where that stands in the record; null when no entry decided.
const source *source_that_decided(const decision_record &record);

} // namespace quillfence::decision
