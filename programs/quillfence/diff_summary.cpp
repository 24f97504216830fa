#include "diff_summary.h"

#include "program.h"
#include "record_words.h"
#include "text.h"

namespace quillfence::programs {

using namespace decision;
using data_files::printable;

namespace {

constexpr size_t most_rules = 40;
constexpr size_t most_causes = 50;
constexpr size_t most_affected = 10;
constexpr verdict all_verdicts[] = {verdict::accept, verdict::reject, verdict::undecided};

} // namespace

static size_t index_of(verdict is) {
    return static_cast<size_t>(is);
}

static std::string name_of(verdict is) {
    return std::string(word(is));
}

// --- head ---------------------------------------------------------------------------------------

static std::string headline_of(const change_tally &tally) {
    const std::string all = counted(tally.transactions(), "transaction");
    if (tally.changes() == 0) {
        return "No change in " + all;
    }
    return counted(tally.changes(), "change") + " in " + all;
}

static std::vector<std::string> sentences_of(const compared_names &names, const change_tally &tally,
                                             const batch_result &result) {
    std::vector<std::string> all = {"before: " + printable(names.before),
                                    "after: " + printable(names.after)};
    for (const std::string &change : names.changes) {
        all.push_back(printable(change));
    }
    if (tally.other_entries() > 0) {
        all.push_back(counted(tally.other_entries(), "transaction") +
                      " more: the same decision, by another entry");
    }
    if (result.sums.refused > 0) {
        all.push_back(counted(result.sums.refused, "input") +
                      " could not be read as a transaction");
    }
    if (result.interrupted) {
        all.push_back("The run was interrupted; this is what was done by then");
    }
    return all;
}

// --- tables -------------------------------------------------------------------------------------

// "12", and behind it how many of them are changes that leave the verdict.
static std::string matrix_cell(const change_tally &tally, verdict before, verdict after) {
    const uint64_t count = tally.verdicts()[index_of(before)][index_of(after)];
    const uint64_t changed = tally.changed_verdicts()[index_of(before)][index_of(after)];
    return before == after && changed > 0
               ? std::to_string(count) + " (" + std::to_string(changed) + " by another rule)"
               : std::to_string(count);
}

static summary_table verdict_table(const change_tally &tally) {
    summary_table made{
        "Verdicts", {"before", "accept after", "reject after", "undecided after"}, {}, {}};
    for (const verdict before : all_verdicts) {
        std::vector<table_cell> row = {{name_of(before)}};
        for (const verdict after : all_verdicts) {
            row.push_back({matrix_cell(tally, before, after)});
        }
        made.rows.push_back(std::move(row));
    }
    return made;
}

static std::string more(uint64_t count, const std::string &noun, const std::string &plural = "") {
    return "and " + counted(count, noun, plural) + " more";
}

static summary_table rule_table(const change_tally &tally) {
    summary_table made{"Rules", {"changes", "before", "after"}, {}, {}};
    std::vector<std::pair<std::pair<std::string, std::string>, uint64_t>> all(tally.rules().begin(),
                                                                              tally.rules().end());
    std::stable_sort(all.begin(), all.end(),
                     [](const auto &one, const auto &other) { return one.second > other.second; });
    for (const auto &[decisions, count] : all) {
        if (made.rows.size() == most_rules) {
            made.remarks.push_back(
                more(all.size() - most_rules, "pair of rules", "pairs of rules"));
            break;
        }
        made.rows.push_back(
            {{std::to_string(count)}, {printable(decisions.first)}, {printable(decisions.second)}});
    }
    return made;
}

static std::string place_text(const config_entry &entry) {
    return printable(entry.file) + (entry.place ? ":" + std::to_string(entry.place) : "");
}

static std::string entry_text(const config_entry &entry) {
    const std::string text = printable(entry.text);
    if (entry.file.empty()) {
        return text.empty() ? "no entry" : text;
    }
    return place_text(entry) + (text.empty() ? "" : ": " + text);
}

static std::string example_text(const change_example &one) {
    const auto or_none = [](const std::string &text, const char *none) {
        return text.empty() ? std::string(none) : printable(text);
    };
    return or_none(one.id, "?") + ": " + or_none(one.ip, "?") + " " + or_none(one.sender, "<>") +
           " -> " + or_none(one.recipient, "?");
}

static std::string becomes(const top_row &row) {
    std::string text;
    for (const verdict is : all_verdicts) {
        if (const uint64_t count = row.to[index_of(is)]) {
            text += (text.empty() ? "" : ", ") + std::to_string(count) + " now " + name_of(is);
        }
    }
    return text;
}

static void add_bounds(summary_table &made, const top_table &of, const char *noun) {
    if (of.size() > made.rows.size()) {
        made.remarks.push_back(more(of.size() - made.rows.size(), noun));
    }
    if (of.error() > 0) {
        made.remarks.push_back("There were too many to count all: a number may be too small by " +
                               std::to_string(of.error()) + ", and rarer ones are left out");
    }
}

static summary_table cause_table(const change_tally &tally) {
    summary_table made{
        "Entries behind the changes", {"changes", "side", "rule", "entry, and examples"}, {}, {}};
    for (const auto &[key, row] : tally.causes().most_frequent(most_causes)) {
        const change_cause &cause = *row->cause;
        table_cell last = {entry_text(cause.entry), becomes(*row)};
        for (const change_example &one : row->examples) {
            last.push_back(example_text(one));
        }
        made.rows.push_back({{std::to_string(row->count)},
                             {std::string(word_of(cause.side))},
                             {cause.rule.empty() ? "-" : printable(cause.rule)},
                             std::move(last)});
    }
    add_bounds(made, tally.causes(), "entry");
    return made;
}

static summary_table affected_table(const char *title, const char *noun, const top_table &of) {
    summary_table made{title, {"changes", "verdicts", noun}, {}, {}};
    for (const auto &[key, row] : of.most_frequent(most_affected)) {
        made.rows.push_back(
            {{std::to_string(row->count)}, {becomes(*row)}, {key.empty() ? "<>" : printable(key)}});
    }
    add_bounds(made, of, noun);
    return made;
}

static summary_table missing_table(const change_tally &tally) {
    summary_table made{"Not known", {"transactions", "what was missing"}, {}, {}};
    for (const auto &[what, count] : tally.missing()) {
        made.rows.push_back({{std::to_string(count)}, {printable(what)}});
    }
    uint64_t undecided = 0;
    for (const verdict is : all_verdicts) {
        const size_t last = index_of(verdict::undecided);
        undecided += tally.verdicts()[index_of(is)][last];
        undecided += is == verdict::undecided ? 0 : tally.verdicts()[last][index_of(is)];
    }
    if (undecided > 0) {
        made.remarks.push_back(counted(undecided, "transaction") +
                               " could not be judged on one side or on both");
    }
    if (tally.decided_without() > 0) {
        made.remarks.push_back(counted(tally.decided_without(), "transaction") +
                               " lacked something and could be judged all the same; an earlier "
                               "rule may have decided in truth");
    }
    return made;
}

static std::vector<summary_table> unhit_tables(const unhit_entries &unhit) {
    summary_table files{
        "Entries of the side after, file by file", {"entries", "nothing matched", "file"}, {}, {}};
    for (const unhit_entries::file_row &row : unhit.files) {
        files.rows.push_back(
            {{std::to_string(row.entries)}, {std::to_string(row.unhit)}, {printable(row.file)}});
    }
    summary_table first{"Entries of the side after that nothing matched", {"", "entry"}, {}, {}};
    for (const unhit_entries::entry_row &row : unhit.first) {
        first.rows.push_back({{row.fresh ? "new" : ""}, {entry_text(row.entry)}});
    }
    if (unhit.count > unhit.first.size()) {
        first.remarks.push_back("and " + std::to_string(unhit.count - unhit.first.size()) +
                                " more");
    }
    return {std::move(files), std::move(first)};
}

// --- the whole ----------------------------------------------------------------------------------

run_summary summarise_diff(const compared_names &names, const change_tally &tally,
                           const batch_result &result, const unhit_entries &unhit) {
    run_summary made{headline_of(tally), sentences_of(names, tally, result), {}};
    add_table(made, verdict_table(tally));
    add_table(made, rule_table(tally));
    add_table(made, cause_table(tally));
    add_table(made, affected_table("Clients with the most changes", "client", tally.clients()));
    add_table(made, affected_table("Senders with the most changes", "sender", tally.senders()));
    add_table(made, affected_table("Domains with the most changes", "domain", tally.domains()));
    add_table(made, missing_table(tally));
    for (summary_table &table : unhit_tables(unhit)) {
        add_table(made, std::move(table));
    }
    return made;
}

} // namespace quillfence::programs
