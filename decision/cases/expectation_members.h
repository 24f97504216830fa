// The members of "expect", in the document's order, for its reader and its writer.
#pragma once

#include <string_view>

#include "case_file.h"

namespace quillfence::decision {

// A text, or a list of texts of which any one will do.
struct expected_texts {
    std::string_view name;
    std::vector<std::string> expectation::*texts;
    bool (*is_known)(std::string_view text); // null: any text
    const char *complaint;                   // about one that is not known
};

// An exact set.
struct expected_set {
    std::string_view name;
    std::optional<std::vector<std::string>> expectation::*texts;
};

bool is_verdict(std::string_view text);
bool is_decided_by(std::string_view text);
bool is_place(std::string_view text);   // "base" or "user"
bool is_rule(std::string_view text);    // of the engine's table
bool is_outcome(std::string_view text); // of a rule

inline constexpr expected_texts texts_of_expect[] = {
    {"verdict", &expectation::verdict, is_verdict, "is no verdict"},
    {"by", &expectation::by, is_decided_by, "is nothing that decides"},
    {"rule", &expectation::rule, is_rule, "is no rule"},
    {"where", &expectation::where, is_place, "is neither \"base\" nor \"user\""},
    {"zone", &expectation::zone, nullptr, nullptr},
    {"notice", &expectation::notice, nullptr, nullptr},
    {"file", &expectation::file, nullptr, nullptr},
    {"entry", &expectation::entry, nullptr, nullptr},
};

inline constexpr std::string_view rules_of_expect = "rules"; // stands between the two

inline constexpr expected_set sets_of_expect[] = {
    {"maps", &expectation::maps},
    {"spam_hits", &expectation::spam_hits},
    {"bms_hits", &expectation::bms_hits},
};

} // namespace quillfence::decision
