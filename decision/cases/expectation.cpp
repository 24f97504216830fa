#include "expectation.h"

#include <algorithm>

#include "expectation_members.h"
#include "record_words.h"
#include "utf8.h"

namespace quillfence::decision {

// --- the entry that decided ---

namespace {

struct entry_of {
    deciding_entry operator()(const std::monostate &) const {
        return {};
    }
    deciding_entry operator()(const list_source &s) const {
        return {s.file, s.entry};
    }
    deciding_entry operator()(const range_source &s) const {
        return {s.file, s.low + " - " + s.high};
    }
    deciding_entry operator()(const expression_source &s) const {
        return {s.file, s.pattern};
    }
    deciding_entry operator()(const block_map_source &s) const {
        return {s.map, s.network};
    }
    deciding_entry operator()(const sender_network_source &s) const {
        return {s.file, s.domain};
    }
    deciding_entry operator()(const registry_source &s) const {
        return {s.key, s.value};
    }
    deciding_entry operator()(const folder_source &s) const {
        return {s.folder, s.name};
    }
    deciding_entry operator()(const address_map_source &s) const {
        return {s.library, ""};
    }
    deciding_entry operator()(const built_in_source &s) const {
        return {std::string(built_in_file), s.pattern.empty() ? s.selection : s.pattern};
    }
    deciding_entry operator()(const file_source &s) const {
        return {s.file, ""};
    }
};

} // namespace

const source *source_that_decided(const decision_record &record) {
    const auto decisive =
        std::find_if(record.rules.begin(), record.rules.end(),
                     [&](const rule_record &rule) { return rule.rule == record.decision.rule; });
    if (record.decision.rule.empty() || decisive == record.rules.end()) {
        return nullptr;
    }
    return decisive->from.index() ? &decisive->from : nullptr;
}

deciding_entry entry_in(const source &of) {
    return std::visit(entry_of(), of);
}

deciding_entry entry_that_decided(const decision_record &record) {
    const source *const from = source_that_decided(record);
    return from ? entry_in(*from) : deciding_entry();
}

// Nothing when the record has no such rule.
static std::optional<std::string> outcome_of(const decision_record &record,
                                             const std::string &name) {
    for (const rule_record &rule : record.rules) {
        if (rule.rule == name) {
            return std::string(word(rule.decision));
        }
    }
    return std::nullopt;
}

// --- the comparison ---

// The text as a record shows it. NUL is shown so, too.
static std::string as_shown(std::string_view raw) {
    std::string shown;
    while (!raw.empty()) {
        const size_t size = raw.front() ? utf8_sequence(raw) : 0;
        shown += size ? raw.substr(0, size) : std::string_view("\xEF\xBF\xBD");
        raw.remove_prefix(std::max<size_t>(size, 1));
    }
    return shown;
}

static bool is_meant(const std::vector<std::string> &any, const std::string &came) {
    return std::any_of(any.begin(), any.end(), [&](const std::string &one) {
        return one == came || one == as_shown(came);
    });
}

static std::vector<std::string> as_set(std::vector<std::string> texts) {
    std::sort(texts.begin(), texts.end());
    texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
    return texts;
}

static bool is_same_set(const std::vector<std::string> &expected,
                        const std::vector<std::string> &came) {
    std::vector<std::string> shown;
    std::transform(came.begin(), came.end(), std::back_inserter(shown), as_shown);
    return as_set(expected) == as_set(came) || as_set(expected) == as_set(shown);
}

static std::string in_words(const std::vector<std::string> &texts, const char *between) {
    std::string words;
    for (const std::string &text : texts) {
        words += (words.empty() ? "" : between) + (text.empty() ? "(none)" : text);
    }
    return words.empty() ? "(none)" : words;
}

static std::string no_report(const decision_record &record) {
    return record.report ? "no report: " + record.report->failed : "no report";
}

std::vector<mismatch> compare(const expectation &expected, const decision_record &record) {
    std::vector<mismatch> wrong;
    const auto compare_text = [&](const std::string &what, const std::vector<std::string> &any,
                                  const std::string &came) {
        if (!any.empty() && !is_meant(any, came)) {
            wrong.push_back({what, in_words(any, " or "), in_words({came}, "")});
        }
    };
    for (const expected_texts &member : texts_of_expect) {
        compare_text(std::string(member.name), expected.*member.texts, member.came(record));
    }
    for (const auto &[rule, any] : expected.rules) {
        compare_text("rules." + rule, any, outcome_of(record, rule).value_or("(no such rule)"));
    }
    for (const expected_set &member : sets_of_expect) {
        const auto &set = expected.*member.texts;
        const std::vector<std::string> *const came = member.came(record);
        if (set && !(came && is_same_set(*set, *came))) {
            wrong.push_back({std::string(member.name), in_words(*set, ", "),
                             came ? in_words(*came, ", ") : no_report(record)});
        }
    }
    return wrong;
}

// --- expectations made of what came ---

expectation expectation_of(const decision_record &record) {
    expectation made;
    made.verdict = {std::string(word(record.decision.is))};
    made.by = {std::string(word(record.decision.by))};
    if (!record.decision.rule.empty()) {
        made.rule = {record.decision.rule};
    }
    return made;
}

expectation corrected(const expectation &expected, const decision_record &record) {
    expectation made = expected;
    const auto correct_text = [](std::vector<std::string> *any, const std::string &came) {
        if (!any->empty() && !is_meant(*any, came)) {
            *any = {as_shown(came)};
        }
    };
    for (const expected_texts &member : texts_of_expect) {
        correct_text(&(made.*member.texts), member.came(record));
    }
    for (auto &[rule, any] : made.rules) {
        if (const auto came = outcome_of(record, rule)) {
            correct_text(&any, *came);
        }
    }
    for (const expected_set &member : sets_of_expect) {
        auto &set = made.*member.texts;
        const std::vector<std::string> *const came = member.came(record);
        if (set && came && !is_same_set(*set, *came)) {
            set->clear();
            std::transform(came->begin(), came->end(), std::back_inserter(*set), as_shown);
        }
    }
    return made;
}

} // namespace quillfence::decision
