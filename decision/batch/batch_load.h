// What travels through a batch run: a load of transactions that were read together, and what came
// of each.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "change.h"
#include "decision_record.h"
#include "entry_hits.h"
#include "input.h"

namespace quillfence::decision {

// What came of a transaction, for the sums and for the output.
struct batch_outcome {
    bool judged = false; // else there is no record: the input is bad, or memory was lacking
    verdict is = verdict::undecided;
    decided_by by = decided_by::error;
    std::vector<missing_item> missing;
    std::unique_ptr<decision_change> compared{}; // where there is something to compare with
    std::vector<entry_hit> hits{};               // where they are counted
    std::string line;                            // with its end
};

struct batch_item {
    uint64_t number = 0; // in the run, from 1
    uint64_t line = 0;   // of the input where it begins, from 1
    size_t begin = 0;    // of its text in the load's
    size_t size = 0;
    bool too_long = false;
    bool done = false; // the outcome is there
    batch_outcome outcome;
};

struct batch_load {
    std::string input; // the name of the file, "-" for standard input
    input_format format = input_format::json;
    std::string text;
    std::vector<batch_item> items;
    uint64_t bytes_read = 0; // of all inputs, with this load

    std::string_view text_of(const batch_item &item) const {
        return std::string_view(text).substr(item.begin, item.size);
    }

    // --- the conveyor's ---
    std::atomic<size_t> open_items = 0;
    bool finished = false;
};

} // namespace quillfence::decision
