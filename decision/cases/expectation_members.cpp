#include "expectation_members.h"

#include <algorithm>

#include "record_words.h"
#include "vcspamrule.h"

namespace quillfence::decision {

bool is_verdict(std::string_view text) {
    return value_of_word<verdict>(text).has_value();
}

bool is_decided_by(std::string_view text) {
    return value_of_word<decided_by>(text).has_value();
}

bool is_place(std::string_view text) {
    return text == "base" || text == "user";
}

bool is_rule(std::string_view text) {
    const auto rows = rule_rows();
    return std::any_of(rows.begin(), rows.end(),
                       [text](const rule_row &row) { return row.name == text; });
}

bool is_outcome(std::string_view text) {
    return value_of_word<outcome>(text).has_value();
}

} // namespace quillfence::decision
