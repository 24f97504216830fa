#include "change_tally.h"

#include <algorithm>

#include "record_words.h"

namespace quillfence::decision {

// Of a text that is kept as an example.
static constexpr size_t longest_example = 120;

std::string decision_words(const decision &of) {
    const std::string by(of.rule.empty() ? word(of.by) : std::string_view(of.rule));
    return std::string(word(of.is)) + " by " + by;
}

static std::string key_of(const std::string &file, const std::string &text) {
    return file + '\n' + text;
}

// --- keys ---------------------------------------------------------------------------------------

static std::string lowered(std::string text) {
    for (char &c : text) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return text;
}

static std::string key_of_cause(const change_cause &cause) {
    return std::string(word_of(cause.side)) + '\n' + cause.rule + '\n' +
           key_of(cause.entry.file, cause.entry.text);
}

// --- counting -----------------------------------------------------------------------------------

static std::string cut(const std::optional<std::string> &text) {
    return text.value_or("").substr(0, longest_example);
}

static change_example example_of(const decision_change &one) {
    return {one.id.substr(0, longest_example), cut(one.transaction.ip), cut(one.transaction.sender),
            cut(one.transaction.recipient)};
}

void change_tally::count_cause(const decision_change &one) {
    top_row &row = causes_.count(key_of_cause(one.cause));
    ++row.to[static_cast<size_t>(one.is_after)];
    if (!row.cause) {
        row.cause = one.cause;
        row.cause->entry.text.resize(
            std::min(row.cause->entry.text.size(), top_table::longest_key));
        causes_.add_bytes(bytes_of_cause(*row.cause));
    }
    if (row.examples.size() < most_examples) {
        row.examples.push_back(example_of(one));
        causes_.add_bytes(bytes_of_example(row.examples.back()));
    }
}

static void count_in(top_table &table, const std::string &key, verdict after) {
    ++table.count(key).to[static_cast<size_t>(after)];
}

// A sender that is not known is nobody's; "" is the sender of a bounce.
void change_tally::count_change(const decision_change &one) {
    ++changes_;
    ++changed_verdicts_[static_cast<size_t>(one.is_before)][static_cast<size_t>(one.is_after)];
    ++rules_[{decision_words(one.before.decision), decision_words(one.after.decision)}];
    count_cause(one);
    if (one.transaction.ip) {
        count_in(clients_, *one.transaction.ip, one.is_after);
    }
    if (one.transaction.sender) {
        const std::string sender = lowered(*one.transaction.sender);
        const size_t at = sender.rfind('@');
        count_in(senders_, sender, one.is_after);
        if (at != std::string::npos) {
            count_in(domains_, sender.substr(at + 1), one.is_after);
        }
    }
}

void change_tally::count_missing(const decision_change &one) {
    if (one.missing.empty()) {
        return;
    }
    decided_without_ += one.is_before != verdict::undecided && one.is_after != verdict::undecided;
    std::vector<std::string> kinds;
    for (const missing_item &each : one.missing) {
        std::string kind = each.what == "dns" ? each.type + " answers" : each.fact;
        if (std::find(kinds.begin(), kinds.end(), kind) == kinds.end()) {
            ++missing_[kind];
            kinds.push_back(std::move(kind));
        }
    }
}

void change_tally::add(const decision_change &one) {
    ++transactions_;
    ++verdicts_[static_cast<size_t>(one.is_before)][static_cast<size_t>(one.is_after)];
    other_entries_ += one.is_other_entry;
    count_missing(one);
    for (const config_entry &entry : one.hit_after) {
        hit_.insert(key_of(entry.file, entry.text));
    }
    if (one.is_change) {
        count_change(one);
    }
}

bool change_tally::is_hit(const std::string &file, const std::string &text) const {
    return hit_.contains(key_of(file, text));
}

} // namespace quillfence::decision
