#include "top_table.h"

#include <algorithm>

namespace quillfence::decision {

// A row without its texts, about.
static constexpr size_t row_bytes = sizeof(top_row) + sizeof(std::string) + 64;

size_t bytes_of_example(const change_example &example) {
    return sizeof example + example.id.size() + example.ip.size() + example.sender.size() +
           example.recipient.size();
}

size_t bytes_of_cause(const change_cause &cause) {
    return cause.rule.size() + cause.entry.file.size() + cause.entry.text.size();
}

static size_t bytes_of(const std::string &key, const top_row &row) {
    size_t bytes = row_bytes + key.size();
    for (const change_example &one : row.examples) {
        bytes += bytes_of_example(one);
    }
    return row.cause ? bytes + bytes_of_cause(*row.cause) : bytes;
}

top_row &top_table::count(std::string_view key) {
    const std::string cut(key.substr(0, longest_key));
    auto found = rows_.find(cut);
    if (found == rows_.end()) {
        if (bytes_ + row_bytes + cut.size() > most_bytes_) {
            forget_half();
        }
        bytes_ += row_bytes + cut.size();
        found = rows_.try_emplace(cut).first;
    }
    ++found->second.count;
    return found->second;
}

static bool comes_more(const top_table::named_row &one, const top_table::named_row &other) {
    return one.second->count != other.second->count ? one.second->count > other.second->count
                                                    : one.first < other.first;
}

std::vector<top_table::named_row> top_table::most_frequent(size_t most) const {
    std::vector<named_row> all;
    for (const auto &[key, row] : rows_) {
        all.emplace_back(key, &row);
    }
    std::sort(all.begin(), all.end(), comes_more);
    all.resize(std::min(all.size(), most));
    return all;
}

// What comes again later begins at 1, and lacks what is forgotten now: at most what was forgotten
// the last time and now of one row.
void top_table::forget_half() {
    const std::vector<named_row> all = most_frequent(rows_.size());
    uint64_t forgotten = 0;
    for (size_t i = all.size() / 2; i < all.size(); ++i) {
        forgotten = std::max(forgotten, all[i].second->count);
        bytes_ -= bytes_of(all[i].first, *all[i].second);
        rows_.erase(all[i].first);
    }
    error_ += forgotten;
}

} // namespace quillfence::decision
