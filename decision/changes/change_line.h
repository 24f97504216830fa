// A change as a line of JSON:
//
//   {"schema":"quillfence.change/1","id":"7","transaction":{...},
//    "before":{"verdict":"accept","by":"nothing"},
//    "after":{"verdict":"reject","by":"rule","rule":"from_blacklist",...,"source":{...}},
//    "cause":{"side":"after","rule":"from_blacklist","file":"...","place":7,"entry":"*@x.example"}}
#pragma once

#include <string>

#include "change.h"

namespace quillfence::decision {

inline constexpr std::string_view change_schema = "quillfence.change/1";

// Appends the line, with its end. Bytes that are not UTF-8 stand as in a decision record.
void append_change(std::string &out, const decision_change &change);

} // namespace quillfence::decision
