// Reads a decision record back from its JSON.
//
// Strict: what the document promises must be there and of its kind, and numbers must fit. Members
// that are not known are passed over, since a later program of the same major version may add some;
// another major version is refused. A "..._bytes" member wins over the text beside it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "decision_record.h"
#include "json_reader.h"

namespace quillfence::decision {

// Nothing when the text is no such record. *problem then says why, naming the member:
// "rules[3].source.line: is not a whole number from 0 to 4294967295".
std::optional<decision_record> read_record(std::string_view text, json_problem *problem,
                                           const json_limits &limits = {});
std::optional<decision_record> read_record(const json_document &document, json_problem *problem);

// A transaction, the object at a node. Of its members, those that are not ours go into *extra as
// they stand; without `extra` they are passed over. "stage" may be left out for "RCPT".
std::optional<transaction> read_transaction(const json_document &document, uint32_t node,
                                            std::vector<extra_member> *extra,
                                            json_problem *problem);

// The list of DNS questions with their answers, the array at a node; or a single one, an object.
std::optional<std::vector<dns_record>> read_answers(const json_document &document, uint32_t node,
                                                    json_problem *problem);

// Whether the document says that it is a decision record of a version that is known.
bool check_record_schema(const json_document &document, json_problem *problem);

} // namespace quillfence::decision
