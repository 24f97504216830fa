// The counters of a log directory, put in order for people.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "data_program.h"
#include "quillfence-log.h"

namespace quillfence::data_tool {

// The counts of a record, in the order in which they are shown.
struct counter_field {
    std::string_view name;  // in CSV and JSON
    std::string_view title; // for people
    uint32_t ql_counter::*value;
};
inline constexpr std::array<counter_field, 7> counter_fields = {{
    {"ham", "Ham", &ql_counter::ham},
    {"spam", "Spam", &ql_counter::spam},
    {"exempt", "Exempt", &ql_counter::exempt},
    {"rate_limit", "Rate limit", &ql_counter::rate_limit},
    {"rate_limit_2", "Rate limit 2", &ql_counter::rate_limit_2},
    {"mta", "From servers", &ql_counter::mta},
    {"mua", "From users", &ql_counter::mua},
}};
// The first so many are the verdicts, of which each transaction has one; the rest tells the kind of
// client.
inline constexpr size_t verdict_fields = 5;

using counts = std::array<uint64_t, counter_fields.size()>;

uint64_t verdicts_of(const counts &of);
counts sum_of(const counts &a, const counts &b);

// One day or one hour.
struct counter_row {
    std::string when;  // "2023-11-02", "2023-11-02 14:00"
    std::string label; // "2", "09"
    counts count;
};

struct counter_totals {
    std::vector<counter_row> days;  // that have a stamp, by date; several months, as far as they go
    std::vector<counter_row> hours; // the 24 that end with the last update, oldest first; or none
    counts total = {};              // of the days
};

// Reads the files in a log directory. Throws a failure when it is no folder, holds no counter file,
// or one that is none of ours.
counter_totals read_counters(const std::string &directory);

} // namespace quillfence::data_tool
