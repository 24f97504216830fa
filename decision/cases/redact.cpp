#include "redact.h"

#include <optional>
#include <string_view>
#include <vector>

#include "case_redactor.h"
#include "expectation.h"
#include "json_reader.h"
#include "record_words.h"

namespace quillfence::decision {

// --- what changes ---

static std::string shown(const std::string &text) {
    return text.empty() ? "(none)" : text;
}
static std::string shown(const std::vector<std::string> &texts) {
    std::string all;
    for (const std::string &text : texts) {
        all += (all.empty() ? "" : ", ") + text;
    }
    return shown(all);
}
template <class Enumeration>
requires std::is_enum_v<Enumeration>
static std::string shown(Enumeration value) {
    return std::string(word(value));
}
static std::string shown(const std::optional<outcome> &value) {
    return value ? shown(*value) : "(none)";
}

template <class Value>
static std::string change(const std::string &what, const Value &before, const Value &after) {
    const std::string was = shown(before);
    const std::string is = shown(after);
    return was == is ? "" : what + " changes: " + was + " -> " + is;
}

// The first of several that says something.
static std::string first_of(std::initializer_list<std::string> changes) {
    for (const std::string &one : changes) {
        if (!one.empty()) {
            return one;
        }
    }
    return "";
}

static std::string rule_change(const rule_record &before, const rule_record &after) {
    return change("the outcome of " + before.rule, before.decision, after.decision);
}

// The same of a rule that was asked both times: for the others it changes because of such a one.
static std::string change_of_asked(const rule_record &before, const rule_record &after) {
    const bool asked =
        before.decision != outcome::not_reached && after.decision != outcome::not_reached;
    return asked ? rule_change(before, after) : "";
}

static std::string other_rule_change(const rule_record &before, const rule_record &after) {
    return first_of(
        {change("the report's outcome of " + before.rule, before.report, after.report),
         change("what " + before.rule + " would have done", before.would, after.would)});
}

// Records of the same length, one by one.
template <class Record, class Function>
static std::string change_among(const char *what, const std::vector<Record> &before,
                                const std::vector<Record> &after, const Function &change_of) {
    std::string found = change(std::string("the number of ") + what, std::to_string(before.size()),
                               std::to_string(after.size()));
    for (size_t i = 0; found.empty() && i < before.size(); ++i) {
        found = change_of(before[i], after[i]);
    }
    return found;
}

static std::string decision_change(const decision &before, const decision &after) {
    return first_of({change("the verdict", before.is, after.is),
                     change("what decides", before.by, after.by),
                     change("the deciding rule", before.rule, after.rule),
                     change("where the exemption stands", before.where, after.where),
                     change("the deciding zone", before.zone, after.zone),
                     change("the list of deciding maps", before.maps, after.maps)});
}

static std::string report_change(const report &was, const report &is) {
    return first_of({change("the report's list of spam hits", was.spam_hits, is.spam_hits),
                     change("the report's list of block map hits", was.bms_hits, is.bms_hits)});
}

static std::string map_change(const block_map_record &before, const block_map_record &after) {
    return change("the outcome of the block map " + before.map, before.is, after.is);
}

static std::string zone_change(const dns_block_list_record &before,
                               const dns_block_list_record &after) {
    return change("the outcome of the DNS block list " + before.zone, before.is, after.is);
}

// Rules first: they say what the rest comes from.
std::string first_change(const decision_record &before, const decision_record &after) {
    const report was = before.report.value_or(report());
    const report is = after.report.value_or(report());
    return first_of({change_among("rules", before.rules, after.rules, change_of_asked),
                     change_among("rules", before.rules, after.rules, rule_change),
                     change_among("block maps", before.block_maps, after.block_maps, map_change),
                     change_among("DNS block lists", before.dns_block_lists, after.dns_block_lists,
                                  zone_change),
                     decision_change(before.decision, after.decision),
                     change("why the report fails", was.failed, is.failed),
                     change_among("rules", before.rules, after.rules, other_rule_change),
                     report_change(was, is)});
}

// --- redacting ---

static std::string with_advice(const std::string &change) {
    return change +
           "; an entry of the configuration names the address itself, or a rule depends on "
           "how it is spelt: hand the case on as it is, redact it without domains, or "
           "change that entry in a copy of the configuration";
}

// An expectation that was met, and is not any more.
static std::string lost_expectation(const test_case &which, const decision_record &before,
                                    const test_case &made, const decision_record &after) {
    if (!compare(which.expect, before).empty()) {
        return "";
    }
    const std::vector<mismatch> lost = compare(made.expect, after);
    return lost.empty() ? ""
                        : "expect." + lost[0].what + " is not met any more: " + lost[0].expected +
                              " is expected, and " + lost[0].came + " comes";
}

static std::string refusal_of(const replay_result &replayed) {
    const std::string why = replayed.failed ? replayed.failed : "";
    return why.empty() ? ""
                       : "the case can't be decided: " + why +
                             (replayed.detail.empty() ? "" : ": " + replayed.detail);
}

// A document that would not be read again as the case that it is, as when two members of "extra"
// get one name.
static std::string unreadable(const std::string &written, const test_case &made) {
    json_problem problem;
    const std::optional<test_case> again = read_case(written, &problem);
    if (!again) {
        return "the redacted case could not be read again: " + problem.text;
    }
    return *again == made ? "" : "the redacted case would be read again as another one";
}

static std::string what_is_left(const case_redactor &redactor, const test_case &made) {
    std::string written;
    write_case(written, made);
    const std::string why = unreadable(written, made);
    if (!why.empty()) {
        return why;
    }
    const std::string leak = redactor.leak_in(written);
    return leak.empty()
               ? ""
               : leak + "; change that text by hand, or take another key, if it is another name's "
                        "pseudonym";
}

// Why a redacted case is not the original's equal; "" when it is. `after` receives its decision.
static std::string other_decision(const replay_result &before, const test_case &made,
                                  const replay_options &options, replay_result *after) {
    *after = replay(made, options);
    const std::string failed = refusal_of(*after);
    const std::string change = failed.empty() ? first_change(before.record, after->record) : "";
    return change.empty() ? failed : with_advice(change);
}

redact_result redact(const test_case &which, const redaction &how, const replay_options &options) {
    const replay_result before = replay(which, options);
    if (before.failed) {
        return {.refused = refusal_of(before)};
    }
    case_redactor redactor(which, before.record, how.key, how.domains);
    const test_case without_exception = redactor.made();
    replay_result after;
    std::string why = other_decision(before, without_exception, options, &after);
    if (!why.empty()) {
        return {.refused = why};
    }
    redactor.learn_said(after.record, after.server);
    redact_result result{.made = redactor.made(), .pseudonyms = redactor.names().computed()};
    if (result.made.server != without_exception.server) { // other answers than were tried
        why = other_decision(before, result.made, options, &after);
    }
    why = first_of({why, lost_expectation(which, before.record, result.made, after.record),
                    what_is_left(redactor, result.made)});
    return why.empty() ? result : redact_result{.refused = why};
}

} // namespace quillfence::decision
