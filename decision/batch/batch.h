// Judges a stream of transactions: one in, one line out, in their order, whatever the number of
// threads and however large the stream. The lines' forms are batch_lines.h's.
//
// The engine must have been started. The run's log function has to be safe from several threads.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "asker.h"
#include "batch_lines.h"
#include "call_context.h"
#include "change.h"
#include "entry_hits.h"
#include "input.h"
#include "memo_source.h"
#include "recorded_source.h"

namespace quillfence::decision {

class pattern_line_files; // pattern_line_files.h

// A second configuration: each transaction is judged with both, one after the other, on the same
// DNS answers. A line tells a change then (change_line.h), and there is none where there is none.
struct batch_comparison {
    std::string drive_c_before{};                // where each side finds the files that are not in
    std::string drive_c_after{};                 // its configuration; "" where the process does
    const frozen_files *configuration = nullptr; // of the side after, as below
    const pattern_line_files *pattern_lines = nullptr;
    const file_substitute *substitutes = nullptr;
    control_of_sides control{}; // of both; may be unknown

    bool lines = true;          // else only what is wrong with an input is written
    bool other_entries = false; // also a line for the same decision by another entry
    // Of each transaction in order, on the thread that calls run_batch().
    std::function<void(const decision_change &)> note;
};

// What the entries of the configuration were worth, in place of lines: each transaction is judged
// with all outcomes, and once more without each entry that its verdict may hang on. Only what is
// wrong with an input is written.
struct batch_hits {
    const control_lines *control = nullptr; // of the configuration; borrowed
    // Of each transaction in order, on the thread that calls run_batch().
    std::function<void(const std::vector<entry_hit> &)> note;
};

struct batch_options {
    std::vector<std::string> inputs; // paths, "-" for standard input
    std::optional<input_format> format{};
    unsigned jobs = 1; // threads that judge
    batch_form form = batch_form::brief;
    bool report = false; // the replayer's lists as well; `whole` and `line` have them anyway

    std::string user_dir{};
    const frozen_files *configuration = nullptr;       // null: the files, read for every question
    const pattern_line_files *pattern_lines = nullptr; // read with it; null: read when needed
    const file_substitute *substitutes = nullptr;      // what if: see call_context.h
    const batch_comparison *compared = nullptr;        // null: nothing to compare with
    const batch_hits *hits = nullptr;                  // null: entries are not counted

    // Where DNS answers come from, all borrowed. Without any, what a decision record brings with it
    // is used, and everything else is missing.
    bool no_answers = false;                                // not even those
    const dns_sources::recorded_source *recorded = nullptr; // the same for all
    dns_sources::source *otherwise = nullptr;   // for what `recorded` lacks; asks nobody
    dns_sources::asker *live = nullptr;         // the DNS, and nobody else; with the next
    dns_sources::memo_source *memo = nullptr;   // its answers of this run; itself asks nobody
    unsigned questions = 64;                    // to the DNS at once
    std::chrono::milliseconds deadline{10'000}; // for all questions of a transaction

    // Each on the thread that calls run_batch(). write takes whole lines and returns 0 or a Win32
    // error number, which ends the run.
    std::function<uint32_t(std::string_view lines)> write;
    std::function<void(uint64_t transactions, uint64_t bytes_read)> progress{}; // may be empty
};

// What was written.
struct batch_sums {
    uint64_t transactions = 0;
    uint64_t verdicts[3] = {}; // by enum verdict
    uint64_t refused = 0;      // lines "error"
    // How many transactions lacked a fact or an answer: "helo", "PTR answers".
    std::map<std::string, uint64_t> missing;
    bool operator==(const batch_sums &) const = default;
};

struct batch_result {
    batch_sums sums;
    std::string failure;      // why not all was read, or judged; "" when nothing was wrong
    uint32_t write_error = 0; // what write() returned
    bool interrupted = false; // by the user: what was done by then has been written
    size_t most_loads = 0;    // what was held at once; see conveyor.h
    size_t most_bytes = 0;
};

batch_result run_batch(const batch_options &options);

} // namespace quillfence::decision
