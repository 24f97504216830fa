// The sums over the comparisons of a run. The memory they take is bounded: the tables by a number
// of bytes, the entries that were hit by the configuration's.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_set>

#include "change.h"
#include "top_table.h"

namespace quillfence::decision {

class change_tally {
  public:
    static constexpr size_t most_examples = 3; // of an entry
    using verdict_row = std::array<uint64_t, 3>;

    void add(const decision_change &one);

    uint64_t transactions() const {
        return transactions_;
    }
    uint64_t changes() const {
        return changes_;
    }
    // The same decision, by another entry.
    uint64_t other_entries() const {
        return other_entries_;
    }
    // All transactions: [verdict before][verdict after].
    const std::array<verdict_row, 3> &verdicts() const {
        return verdicts_;
    }
    // Changes among them, in the same way: also those that leave the verdict as it is.
    const std::array<verdict_row, 3> &changed_verdicts() const {
        return changed_verdicts_;
    }

    // Changes by "REJECT by a" before and after.
    const std::map<std::pair<std::string, std::string>, uint64_t> &rules() const {
        return rules_;
    }
    const top_table &causes() const {
        return causes_;
    }
    const top_table &clients() const {
        return clients_;
    }
    const top_table &senders() const {
        return senders_;
    }
    const top_table &domains() const {
        return domains_;
    }

    // Transactions that lacked a fact or an answer, by its kind: "helo", "PTR answers".
    const std::map<std::string, uint64_t> &missing() const {
        return missing_;
    }
    // Transactions that lacked anything, and are decided on both sides all the same.
    uint64_t decided_without() const {
        return decided_without_;
    }
    // Whether this entry of the side after matched in any transaction. By its text.
    bool is_hit(const std::string &file, const std::string &text) const;

  private:
    void count_missing(const decision_change &one);
    void count_change(const decision_change &one);
    void count_cause(const decision_change &one);

    uint64_t transactions_ = 0;
    uint64_t changes_ = 0;
    uint64_t other_entries_ = 0;
    uint64_t decided_without_ = 0;
    std::array<verdict_row, 3> verdicts_{};
    std::array<verdict_row, 3> changed_verdicts_{};
    std::map<std::pair<std::string, std::string>, uint64_t> rules_;
    std::map<std::string, uint64_t> missing_;
    top_table causes_;
    top_table clients_;
    top_table senders_;
    top_table domains_;
    std::unordered_set<std::string> hit_;
};

// "accept by nothing", "reject by from_blacklist": the verdict and what it rests on, the rule where
// there is one.
std::string decision_words(const decision &of);

} // namespace quillfence::decision
