// Counts what comes most often, in bounded memory whatever comes. When a table is full the half of
// its rows that came least is forgotten; a count is then too small by at most error().
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "change.h"

namespace quillfence::decision {

// A transaction, as an example of something; texts are cut.
struct change_example {
    std::string id;
    std::string ip;
    std::string sender;
    std::string recipient;
    bool operator==(const change_example &) const = default;
};

struct top_row {
    uint64_t count = 0;
    uint64_t to[3] = {};               // of these by the verdict after
    std::optional<change_cause> cause; // of a table of causes
    std::vector<change_example> examples;
};

// The memory that these take in a row, about.
size_t bytes_of_example(const change_example &example);
size_t bytes_of_cause(const change_cause &cause);

class top_table {
  public:
    static constexpr size_t longest_key = 1024; // what is longer is cut there

    // About so many bytes at most.
    explicit top_table(size_t bytes = size_t{8} << 20) : most_bytes_(bytes) {}

    // Counts the key, and returns its row, for what is to be added. Borrowed until the next one.
    top_row &count(std::string_view key);
    // What was added to the row just counted takes so many bytes more.
    void add_bytes(size_t bytes) {
        bytes_ += bytes;
    }

    using named_row = std::pair<std::string, const top_row *>;
    // So many rows at most, the most frequent ones first, then by their keys. Borrowed.
    std::vector<named_row> most_frequent(size_t most) const;
    size_t size() const {
        return rows_.size();
    }
    // How much too small a count may be; 0 while nothing was forgotten.
    uint64_t error() const {
        return error_;
    }

  private:
    void forget_half();

    const size_t most_bytes_;
    std::unordered_map<std::string, top_row> rows_;
    size_t bytes_ = 0;
    uint64_t error_ = 0;
};

} // namespace quillfence::decision
