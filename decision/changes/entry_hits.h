// What the entries of a configuration's files were worth in one transaction: which matched, which
// decided, and which nothing else would have stood in for.
//
// All of it is the engine's: what matched stands in a record that was made with all outcomes
// (explain_options.all); what the verdict would be without an entry is asked for by judging once
// more with the entry left out.
#pragma once

#include <vector>

#include "config_entry.h"
#include "control_lines.h"
#include "decision_record.h"

namespace quillfence::decision {

// Asked for are verdicts that there are: of a transaction that is undecided with all entries in
// place it is not counted which of them keeps it so. Nor does a declaration of networks count that
// lets a client pass whom another one of the same domain, behind it, would not.
struct entry_hit {
    config_entry entry;
    bool decided = false;    // the verdict rests on it
    bool may_matter = false; // without it the verdict could be another one: worth asking
    // What came of that: whether it is the other one, or there is none, as something is missing.
    bool is_only = false;
    bool is_open = false;
    bool operator==(const entry_hit &) const = default;
};

// The entries that matched, each once: of the lists, range files, compiled patterns and sender
// networks those that the engine came upon, also in rules that are not enabled; of the control
// files the enabled rules that hit, the block maps and the DNS block lists that list the client.
// The engine looks no further than the first entry of a file that matches, the first DNS block list
// that lists.
std::vector<entry_hit> hits_of(const decision_record &with_all, const control_lines &control);

} // namespace quillfence::decision
