// Two decisions about the same transaction, made with two configurations, held against each other.
//
// A change is another verdict, another "by" or another rule. Entries are told by the file and the
// text, not by the place in the file: a comment that is added on top moves every line of a list and
// changes nothing.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "config_entry.h"
#include "control_lines.h"
#include "decision_record.h"

namespace quillfence::decision {

enum class config_side : uint8_t { before, after };
std::string_view word_of(config_side side); // "before", "after"

// What made the difference. The decision is made by what comes first; so it is the earlier one of
// both deciding entries: it came with the side where it stands alone, or went with it. Where the
// other side has it and something else kept it from deciding, it is that: an entry that saved a
// name, or the line that enables the rule or the block map. Where an answer is missing of one DNS
// block list, it is that list's line.
struct change_cause {
    config_side side = config_side::after; // where it stands
    std::string rule;                      // that decided there
    config_entry entry;                    // empty when the rule needs none
    bool operator==(const change_cause &) const = default;
};

struct decided_side {
    struct decision decision;
    source from; // the entry that decided, with its place; std::monostate for none
    bool operator==(const decided_side &) const = default;
};

struct decision_change {
    bool is_change = false;
    bool is_other_entry = false; // the same decision, by another entry
    verdict is_before = verdict::undecided;
    verdict is_after = verdict::undecided;
    std::vector<missing_item> missing;   // on one side at least
    std::vector<config_entry> hit_after; // entries of lists that matched on the side after

    // Only of a change and of another entry:
    std::string id;
    std::string time;
    struct transaction transaction;
    std::vector<extra_member> extra;
    decided_side before;
    decided_side after;
    change_cause cause;
};

// Where the names in the control files stand on each side; without it the places of such entries
// are unknown. Borrowed.
struct control_of_sides {
    const control_lines *before = nullptr;
    const control_lines *after = nullptr;
};

decision_change compare_decisions(const decision_record &before, const decision_record &after,
                                  const control_of_sides &control = {});

// The place and the text of a source.
config_entry entry_of_source(const source &of);

// A line of a list, a range, an expression, a declaration of networks.
bool is_listed(const source &of);

} // namespace quillfence::decision
