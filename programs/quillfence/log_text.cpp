#include "log_text.h"

#include <algorithm>

#include "program.h"
#include "record_words.h"
#include "text.h"
#include "utc_text.h"

namespace quillfence::programs {

using namespace decision;
using data_files::printable;

namespace {

constexpr size_t most_rows = 10; // of clients, senders and domains
constexpr size_t most_rules = 40;
constexpr size_t most_days = 31;
constexpr size_t most_zones = 40;
constexpr size_t widest_name = 36; // what is longer is cut

} // namespace

static std::string padded(std::string text, size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

static std::string cut(const std::string &raw, size_t most) {
    const std::string text = printable(raw);
    return text.size() <= most ? text : text.substr(0, most - 3) + "...";
}

// "2026-11-22 04:51:13", UTC.
static std::string moment_text(int64_t at, size_t length = 19) {
    const int64_t seconds = at / 1000 - (at % 1000 < 0);
    std::string text = utc_text(seconds).substr(0, length);
    if (length > 10) {
        text[10] = ' ';
    }
    return text;
}

// --- a record -----------------------------------------------------------------------------------

// The rule, or what else decided.
static std::string decided_text(const struct decision &of) {
    return of.rule.empty() ? std::string(word(of.by)) : printable(of.rule);
}

static std::string person(const std::optional<std::string> &address) {
    return !address ? "?" : address->empty() ? "<>" : printable(*address);
}

static std::string details(const log_record &record) {
    std::string text = record.id.empty() ? "" : "id " + printable(record.id);
    if (!record.answered.empty()) {
        text += (text.empty() ? "answered " : ", answered ") + cut(record.answered, widest_name);
    }
    return text.empty() ? "" : "  (" + text + ")";
}

std::string log_row(const log_record &record, const text_options &options) {
    constexpr size_t time_width = 21;
    constexpr size_t verdict_width = 11;
    constexpr size_t rule_width = 30;
    const std::string when = record.at ? moment_text(*record.at) : "-";
    const std::string client = record.transaction.ip ? printable(*record.transaction.ip) : "?";
    std::string first = padded(when, time_width) +
                        padded(std::string(word(record.decision.is)), verdict_width) +
                        padded(decided_text(record.decision), rule_width);
    std::string second = person(record.transaction.sender) + " -> " +
                         person(record.transaction.recipient) + details(record);
    if (first.size() + client.size() <= options.width) {
        first += client;
    } else {
        second = client + "  " + second;
    }
    text_page page(options);
    page.paragraph(0, first, style_of(record.decision.is));
    page.paragraph(2, second);
    return page.take();
}

// --- the sums -----------------------------------------------------------------------------------

static std::string number(uint64_t count) {
    return std::to_string(count);
}

static std::vector<table_cell> counts_row(const std::string &name, const verdict_counts &counts) {
    std::vector<table_cell> row = {{name}, {number(counts.all())}};
    for (const uint64_t count : counts.of) {
        row.push_back({number(count)});
    }
    return row;
}

static summary_table moments_table(const char *title, const char *unit, size_t length,
                                   const std::map<int64_t, verdict_counts> &rows, size_t most) {
    summary_table made{title, {unit, "records", "accept", "reject", "undecided"}, {}, {}};
    size_t left = rows.size();
    for (const auto &[at, counts] : rows) {
        if (left-- <= most) {
            made.rows.push_back(counts_row(moment_text(at, length), counts));
        }
    }
    return made;
}

static summary_table decisions_table(const log_tally &tally) {
    std::vector<std::pair<std::string, uint64_t>> all(tally.decisions().begin(),
                                                      tally.decisions().end());
    std::stable_sort(all.begin(), all.end(),
                     [](const auto &one, const auto &other) { return one.second > other.second; });
    summary_table made{"What decided", {"records", "decision"}, {}, {}};
    for (const auto &[words, count] : all) {
        if (made.rows.size() == most_rules) {
            made.remarks.push_back("and " + number(all.size() - most_rules) + " more");
            break;
        }
        made.rows.push_back({{number(count)}, {cut(words, 60)}});
    }
    return made;
}

static summary_table answers_table(const log_tally &tally) {
    summary_table made{"What the mail server was told", {"records", "answer"}, {}, {}};
    for (const log_answer one : {log_answer::dunno, log_answer::reject, log_answer::warn,
                                 log_answer::ok, log_answer::other}) {
        if (const uint64_t count = tally.answers(one)) {
            made.rows.push_back({{number(count)}, {std::string(word_of(one))}});
        }
    }
    return made;
}

static summary_table people_table(const char *title, const char *noun, const top_table &of) {
    summary_table made{title, {"records", "accept", "reject", "undecided", noun}, {}, {}};
    for (const auto &[key, row] : of.most_frequent(most_rows)) {
        made.rows.push_back({{number(row->count)},
                             {number(row->to[0])},
                             {number(row->to[1])},
                             {number(row->to[2])},
                             {key.empty() ? "<>" : cut(key, widest_name)}});
    }
    if (of.size() > made.rows.size()) {
        made.remarks.push_back("and " + counted(of.size() - made.rows.size(), noun) + " more");
    }
    if (of.error() > 0) {
        made.remarks.push_back("There were too many to count all: a number may be too small by " +
                               number(of.error()));
    }
    return made;
}

static std::string milliseconds(double ms) {
    constexpr double long_time = 10'000;
    constexpr double longest = 999'999'000;
    char text[32];
    if (ms < long_time) {
        std::snprintf(text, sizeof text, "%.1f ms", ms);
    } else {
        std::snprintf(text, sizeof text, "%.0f s", std::min(ms, longest) / 1000);
    }
    return text;
}

static std::string mean_text(const question_times &times) {
    return times.count ? milliseconds(times.sum / static_cast<double>(times.count)) : "-";
}

static std::string longest_text(const question_times &times) {
    return times.count ? milliseconds(times.longest) : "-";
}

static summary_table lists_table(const log_tally &tally) {
    summary_table made{"DNS block lists",
                       {"asked", "listed", "clear", "refused", "odd", "failed", "zone"},
                       {},
                       {}};
    uint64_t refused = 0;
    for (const auto &[zone, row] : tally.lists()) {
        if (made.rows.size() == most_zones) {
            made.remarks.push_back("and " + number(tally.lists().size() - most_zones) + " more");
            break;
        }
        made.rows.push_back({{number(row.asked)},
                             {number(row.listed)},
                             {number(row.not_listed)},
                             {number(row.refused)},
                             {number(row.no_listing)},
                             {number(row.failed)},
                             {cut(zone, 34), "mean " + mean_text(row.times) + ", longest " +
                                                 longest_text(row.times)}});
        refused += row.refused;
    }
    if (refused > 0) {
        made.remarks.push_back("What refuses wants to be asked through a resolver of your own");
    }
    return made;
}

static summary_table questions_table(const log_tally &tally) {
    summary_table made{
        "DNS questions",
        {"type", "asked", "found", "no name", "refused", "failed", "mean", "longest"},
        {},
        {}};
    for (const auto &[type, row] : tally.questions()) {
        made.rows.push_back({{cut(type, 8)},
                             {number(row.asked)},
                             {number(row.found)},
                             {number(row.no_name)},
                             {number(row.refused)},
                             {number(row.failed)},
                             {mean_text(row.times)},
                             {longest_text(row.times)}});
    }
    return made;
}

static std::string headline_of(const verdict_counts &counts) {
    return counted(counts.all(), "record") + ": " + number(counts.of[0]) + " accepted, " +
           number(counts.of[1]) + " rejected, " + number(counts.of[2]) + " undecided";
}

run_summary summarise_log(const log_tally &tally) {
    run_summary made{headline_of(tally.all()), {}, {}};
    if (tally.oldest()) {
        made.sentences.push_back("from " + moment_text(*tally.oldest()) + " to " +
                                 moment_text(*tally.newest()) + " (UTC)");
    }
    add_table(made, decisions_table(tally));
    add_table(made, answers_table(tally));
    add_table(made, moments_table("Days", "day", 10, tally.days(), most_days));
    add_table(made,
              moments_table("The last hours", "hour", 16, tally.hours(), log_tally::most_hours));
    add_table(made, people_table("Clients", "client", tally.clients()));
    add_table(made, people_table("Senders", "sender", tally.senders()));
    add_table(made, people_table("Domains of senders", "domain", tally.domains()));
    add_table(made, lists_table(tally));
    add_table(made, questions_table(tally));
    return made;
}

} // namespace quillfence::programs
