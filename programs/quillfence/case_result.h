// What came of one case of a test run, and how it is said.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "expectation.h"

namespace quillfence::programs {

enum class case_outcome : uint8_t { as_expected, not_as_expected, not_run };

struct case_result {
    std::string path;
    std::string description{};
    case_outcome is = case_outcome::not_run;
    double seconds = 0;

    // Of one that was not run: why, and the line of the file if it is about one.
    std::string problem{};
    uint32_t line = 0;

    // Of one that was: what is not as expected, what decided, and what stands in the way of
    // trusting the answer.
    std::vector<decision::mismatch> wrong{};
    std::string decided{};              // "REJECT by from_blacklist"
    std::string entry{};                // "c:/quillfence/from_blacklist:2: *@spammer.example"
    std::string reason{};               // of the rule that decided
    std::vector<std::string> missing{}; // what was asked and is not in the case
    std::vector<std::string> changed{}; // "c:/quillfence/from_blacklist differs"
    std::vector<std::string> notes{};  // warnings of the record, those about changed files included
    std::vector<std::string> errors{}; // lines of the engine
};

// One line: "not as expected: verdict, rule", or why it was not run.
std::string in_short(const case_result &result);

struct case_counts {
    size_t as_expected = 0;
    size_t not_as_expected = 0;
    size_t not_run = 0;
    size_t all() const {
        return as_expected + not_as_expected + not_run;
    }
};
case_counts count_of(const std::vector<case_result> &results);
// "10 cases: 8 as expected, 1 not as expected, 1 not run".
std::string in_short(const case_counts &counts);

// The text for a report that people and programs read: UTF-8 as it is, but every byte of what is
// none, of control characters, of characters that turn the direction of the text around them, and
// of those that no XML may hold, as \xNN.
std::string report_text(std::string_view raw);

} // namespace quillfence::programs
