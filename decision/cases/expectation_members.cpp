#include "expectation_members.h"

#include <algorithm>

#include "expectation.h"
#include "record_words.h"
#include "vcspamrule.h"

namespace quillfence::decision {

bool is_verdict(std::string_view text) {
    return value_of_word<verdict>(text).has_value();
}

bool is_decided_by(std::string_view text) {
    return value_of_word<decided_by>(text).has_value();
}

bool is_rule(std::string_view text) {
    const auto rows = rule_rows();
    return std::any_of(rows.begin(), rows.end(),
                       [text](const rule_row &row) { return row.name == text; });
}

bool is_outcome(std::string_view text) {
    return value_of_word<outcome>(text).has_value();
}

bool is_rule_or_none(std::string_view text) {
    return text.empty() || is_rule(text);
}

bool is_place_or_none(std::string_view text) {
    return text.empty() || text == "base" || text == "user";
}

// --- what came ---

std::string came_verdict(const decision_record &record) {
    return std::string(word(record.decision.is));
}

std::string came_by(const decision_record &record) {
    return std::string(word(record.decision.by));
}

std::string came_rule(const decision_record &record) {
    return record.decision.rule;
}

std::string came_where(const decision_record &record) {
    return record.decision.where;
}

std::string came_zone(const decision_record &record) {
    return record.decision.zone;
}

std::string came_notice(const decision_record &record) {
    return record.decision.notice;
}

std::string came_file(const decision_record &record) {
    return entry_that_decided(record).file;
}

std::string came_entry(const decision_record &record) {
    return entry_that_decided(record).entry;
}

const std::vector<std::string> *came_maps(const decision_record &record) {
    return &record.decision.maps;
}

static const report *whole_report(const decision_record &record) {
    return record.report && record.report->failed.empty() ? &*record.report : nullptr;
}

const std::vector<std::string> *came_spam_hits(const decision_record &record) {
    const report *const made = whole_report(record);
    return made ? &made->spam_hits : nullptr;
}

const std::vector<std::string> *came_bms_hits(const decision_record &record) {
    const report *const made = whole_report(record);
    return made ? &made->bms_hits : nullptr;
}

} // namespace quillfence::decision
