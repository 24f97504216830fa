#include "hit_tally.h"

#include <algorithm>
#include <tuple>
#include <unordered_set>

namespace quillfence::decision {

static std::string key_of(const config_entry &entry) {
    return entry.file + '\n' + std::to_string(entry.place);
}

void hit_tally::add(const std::vector<entry_hit> &of_one_transaction) {
    for (const entry_hit &hit : of_one_transaction) {
        hit_row &row = rows_[key_of(hit.entry)];
        if (row.counts.matched++ == 0) {
            row.entry = hit.entry;
        }
        row.counts.decided += hit.decided;
        row.counts.only += hit.is_only;
        row.counts.open += hit.is_open;
    }
}

std::vector<hit_row> hit_tally::rows(const std::vector<config_entry> &entries) const {
    std::vector<hit_row> all;
    std::unordered_set<std::string> listed;
    for (const config_entry &entry : entries) {
        const std::string key = key_of(entry);
        const auto found = rows_.find(key);
        all.push_back({entry, found == rows_.end() ? hit_counts() : found->second.counts});
        listed.insert(key);
    }
    const size_t known = all.size();
    for (const auto &[key, row] : rows_) {
        if (!listed.contains(key)) {
            all.push_back(row);
        }
    }
    std::sort(all.begin() + static_cast<ptrdiff_t>(known), all.end(),
              [](const hit_row &one, const hit_row &other) {
                  return std::tie(one.entry.file, one.entry.place) <
                         std::tie(other.entry.file, other.entry.place);
              });
    return all;
}

} // namespace quillfence::decision
