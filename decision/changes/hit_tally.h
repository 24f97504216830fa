// The sums over the entries that matched in a run. The memory they take is bounded by the number of
// the configuration's entries.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "entry_hits.h"

namespace quillfence::decision {

// Transactions, of one entry.
struct hit_counts {
    uint64_t matched = 0;
    uint64_t decided = 0;
    uint64_t only = 0; // without it the verdict would be the other one
    uint64_t open = 0; // without it there would be none, for want of a fact or an answer
    bool operator==(const hit_counts &) const = default;
};

struct hit_row {
    config_entry entry;
    hit_counts counts;
    bool operator==(const hit_row &) const = default;
};

class hit_tally {
  public:
    void add(const std::vector<entry_hit> &of_one_transaction);

    // A row for each entry of the configuration, in the order given, and behind them rows for what
    // else matched, as that of a file which was edited meanwhile.
    std::vector<hit_row> rows(const std::vector<config_entry> &entries) const;

  private:
    std::unordered_map<std::string, hit_row> rows_;
};

} // namespace quillfence::decision
