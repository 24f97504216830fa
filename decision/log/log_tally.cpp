#include "log_tally.h"

#include <algorithm>

#include "change_tally.h"
#include "text.h"

namespace quillfence::decision {

static constexpr int64_t hour = 3'600'000;

void question_times::add(double ms) {
    ms = std::max(ms, 0.0); // a clock that was set back
    ++count;
    sum += ms;
    longest = std::max(longest, ms);
}

static void count(verdict_counts &counts, const log_record &record) {
    ++counts.of[static_cast<size_t>(record.decision.is)];
}

// Of the newest moments alone: one that is older than all of as many others is not counted.
static void count_moment(std::map<int64_t, verdict_counts> &rows, size_t most, int64_t at,
                         const log_record &record) {
    if (rows.size() >= most && !rows.contains(at)) {
        if (at < rows.begin()->first) {
            return;
        }
        rows.erase(rows.begin());
    }
    count(rows[at], record);
}

void log_tally::add_time(const log_record &record) {
    if (!record.at) {
        return;
    }
    const int64_t at = *record.at;
    const auto begin_of = [at](int64_t unit) { return at - (at % unit + unit) % unit; };
    oldest_ = std::min(oldest_.value_or(at), at);
    newest_ = std::max(newest_.value_or(at), at);
    count_moment(days_, most_days, begin_of(24 * hour), record);
    count_moment(hours_, most_hours, begin_of(hour), record);
}

static void count_in(top_table &table, std::string_view key, const log_record &record) {
    ++table.count(key).to[static_cast<size_t>(record.decision.is)];
}

void log_tally::add_people(const log_record &record) {
    if (record.transaction.ip) {
        count_in(clients_, *record.transaction.ip, record);
    }
    if (!record.transaction.sender) {
        return;
    }
    const std::string sender = data_files::lower(*record.transaction.sender);
    count_in(senders_, sender, record);
    if (const size_t at = sender.rfind('@'); at != std::string::npos) {
        count_in(domains_, std::string_view(sender).substr(at + 1), record);
    }
}

// The row of a key; null for one more than the table may have.
template <class Row>
static Row *row_of(std::map<std::string, Row> &rows, const std::string &key, size_t most) {
    constexpr size_t longest = 255; // of a name in the DNS
    return rows.size() < most || rows.contains(key) ? &rows[key.substr(0, longest)] : nullptr;
}

static bool is_refused(const dns_record &question) {
    return question.rcode == "REFUSED";
}

void log_tally::add_list(const log_record &record, const dns_block_list_record &list) {
    list_health *const row = list.answer ? row_of(lists_, list.zone, most_zones) : nullptr;
    if (!row) {
        return;
    }
    bool refused = *list.answer == block_list_answer::refused;
    for (const dns_record &question : record.dns) {
        if (std::find(list.dns.begin(), list.dns.end(), question.n) == list.dns.end()) {
            continue;
        }
        refused = refused || is_refused(question);
        if (question.ms) {
            row->times.add(*question.ms);
        }
    }
    ++row->asked;
    const auto is = [&](block_list_answer answer) { return !refused && *list.answer == answer; };
    row->refused += refused;
    row->listed += is(block_list_answer::listed);
    row->not_listed += is(block_list_answer::not_listed);
    row->no_listing += is(block_list_answer::no_listing);
    row->failed += is(block_list_answer::failed);
}

// What nobody was asked is no question.
void log_tally::add_question(const dns_record &question) {
    question_health *const row = question.is == answer_class::missing
                                     ? nullptr
                                     : row_of(questions_, question.type, most_words);
    if (!row) {
        return;
    }
    const bool refused = is_refused(question);
    ++row->asked;
    row->refused += refused;
    row->found += !refused && question.is == answer_class::found;
    row->no_name += !refused && question.is == answer_class::no_name;
    row->failed += !refused && question.is == answer_class::failure;
    if (question.ms) {
        row->times.add(*question.ms);
    }
}

void log_tally::add(const log_record &record) {
    count(all_, record);
    ++answers_[static_cast<size_t>(answer_of_text(record.answered))];
    if (uint64_t *const row = row_of(decisions_, decision_words(record.decision), most_words)) {
        ++*row;
    }
    add_time(record);
    add_people(record);
    for (const dns_block_list_record &list : record.dns_block_lists) {
        add_list(record, list);
    }
    for (const dns_record &question : record.dns) {
        add_question(question);
    }
}

} // namespace quillfence::decision
