// The members of "expect", in the document's order, for whoever reads, writes or compares them.
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
    std::string (*came)(const decision_record &record);
};

// An exact set.
struct expected_set {
    std::string_view name;
    std::optional<std::vector<std::string>> expectation::*texts;
    const std::vector<std::string> *(*came)(const decision_record &record); // null: no report
};

bool is_verdict(std::string_view text);
bool is_decided_by(std::string_view text);
bool is_rule(std::string_view text);    // of the engine's table
bool is_outcome(std::string_view text); // of a rule
// The same where "" says that there is none.
bool is_rule_or_none(std::string_view text);
bool is_place_or_none(std::string_view text); // "base" or "user"

std::string came_verdict(const decision_record &record);
std::string came_by(const decision_record &record);
std::string came_rule(const decision_record &record);
std::string came_where(const decision_record &record);
std::string came_zone(const decision_record &record);
std::string came_notice(const decision_record &record);
std::string came_file(const decision_record &record);  // of the entry that decided
std::string came_entry(const decision_record &record); // likewise
const std::vector<std::string> *came_maps(const decision_record &record);
const std::vector<std::string> *came_spam_hits(const decision_record &record);
const std::vector<std::string> *came_bms_hits(const decision_record &record);

inline constexpr expected_texts texts_of_expect[] = {
    {"verdict", &expectation::verdict, is_verdict, "is no verdict", came_verdict},
    {"by", &expectation::by, is_decided_by, "is nothing that decides", came_by},
    {"rule", &expectation::rule, is_rule_or_none, "is no rule", came_rule},
    {"where", &expectation::where, is_place_or_none, "is neither \"base\" nor \"user\"",
     came_where},
    {"zone", &expectation::zone, nullptr, nullptr, came_zone},
    {"notice", &expectation::notice, nullptr, nullptr, came_notice},
    {"file", &expectation::file, nullptr, nullptr, came_file},
    {"entry", &expectation::entry, nullptr, nullptr, came_entry},
};

inline constexpr std::string_view rules_of_expect = "rules"; // stands between the two

inline constexpr expected_set sets_of_expect[] = {
    {"maps", &expectation::maps, came_maps},
    {"spam_hits", &expectation::spam_hits, came_spam_hits},
    {"bms_hits", &expectation::bms_hits, came_bms_hits},
};

} // namespace quillfence::decision
