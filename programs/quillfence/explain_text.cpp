#include "explain_text.h"

#include <algorithm>
#include <set>

#include "explain_words.h"
#include "text.h"
#include "text_page.h"

namespace quillfence::programs {

using namespace decision;
using data_files::printable;

namespace {

// --- the parts ---

void write_decision(text_page &page, const decision_record &record) {
    page.paragraph(0, headline(record), style_of(record.decision.is));
    for (const std::string &sentence : what_decided(record)) {
        page.paragraph(2, sentence);
    }
}

void write_rows(text_page &page, const std::vector<named_text> &rows, size_t column) {
    for (const named_text &row : rows) {
        page.row(row.first, row.second, column);
    }
}

// The engine's lines, each once, and how often it came.
std::vector<std::string> errors_with_times(const decision_record &record) {
    std::vector<std::string> all;
    for (const error_line &one : record.errors) {
        all.push_back("error: " + printable(one.module) + ' ' + printable(one.function) +
                      "(): " + printable(one.text));
    }
    std::vector<std::string> once;
    std::set<std::string> told;
    for (const std::string &line : all) {
        if (told.insert(line).second) {
            const auto times = std::count(all.begin(), all.end(), line);
            once.push_back(line + (times > 1 ? " (" + std::to_string(times) + " times)" : ""));
        }
    }
    return once;
}

void write_notes(text_page &page, const decision_record &record) {
    if (record.notes.empty() && record.errors.empty()) {
        return;
    }
    page.heading("Notes");
    for (const note &one : record.notes) {
        page.paragraph(2, printable(one.severity) + ": " + printable(one.text),
                       one.severity == "warning" ? style::doubtful : style::plain);
    }
    for (const std::string &error : errors_with_times(record)) {
        page.paragraph(2, error, style::bad);
    }
}

// What is missing is part of what decided when nothing could be decided.
void write_missing(text_page &page, const decision_record &record) {
    if (record.missing.empty() || record.decision.is == verdict::undecided) {
        return;
    }
    page.heading("Missing");
    for (const std::string &sentence : missing_sentences(record)) {
        page.paragraph(2, sentence);
    }
}

void write_dns(text_page &page, const decision_record &record) {
    const std::string summary = dns_summary(record);
    if (summary.empty()) {
        return;
    }
    page.heading("DNS: " + summary);
    std::set<std::string> told; // a resolver in trouble is asked the same again and again
    for (const dns_record &dns : record.dns) {
        const std::string line = dns_question(dns) + "  " + dns_answer(dns);
        if (was_asked(dns) && told.insert(line).second) {
            const std::string effort = dns_effort_of_all(record, dns);
            page.paragraph(2, line + (effort.empty() ? "" : "  (" + effort + ')'));
        }
    }
}

// Names up to this length have the text beside them.
constexpr size_t widest_name = 27;

template <class Item, class Name>
size_t column_for(const std::vector<Item> &items, Name name) {
    size_t widest = 0;
    for (const Item &item : items) {
        widest = std::max(widest, std::min(name(item).size(), widest_name));
    }
    return widest + 4;
}

void write_block_maps(text_page &page, const decision_record &record) {
    const auto name = [](const block_map_record &map) { return printable(map.map); };
    const size_t column = column_for(record.block_maps, name);
    if (!record.block_maps.empty()) {
        page.heading("Block maps");
    }
    for (const block_map_record &map : record.block_maps) {
        page.row(name(map), block_map_sentence(map), column);
    }
}

void write_block_lists(text_page &page, const decision_record &record) {
    const auto name = [](const dns_block_list_record &list) { return printable(list.zone); };
    const size_t column = column_for(record.dns_block_lists, name);
    if (!record.dns_block_lists.empty()) {
        page.heading("DNS block lists");
    }
    for (const dns_block_list_record &list : record.dns_block_lists) {
        page.row(name(list), block_list_sentence(list), column);
    }
}

// The rules that there is nothing else to say about, a line for all of which the same is said.
void write_rules_aside(text_page &page, const decision_record &record) {
    std::vector<named_text> lines; // what is said, and of which
    for (const rule_record &rule : record.rules) {
        if (!is_aside(rule)) {
            continue;
        }
        const std::string sentence = rule_sentence(rule);
        const auto line = std::find_if(lines.begin(), lines.end(), [&](const named_text &one) {
            return one.first == sentence;
        });
        if (line == lines.end()) {
            lines.emplace_back(sentence, printable(rule.rule));
        } else {
            line->second += ", " + printable(rule.rule);
        }
    }
    for (const named_text &line : lines) {
        page.paragraph(2, line.first + ": " + line.second);
    }
}

void write_rules(text_page &page, const decision_record &record) {
    const auto name = [](const rule_record &rule) {
        return is_aside(rule) ? std::string() : printable(rule.rule);
    };
    const size_t column = column_for(record.rules, name);
    if (!record.rules.empty()) {
        page.heading("Rules");
    }
    for (const rule_record &rule : record.rules) {
        if (is_aside(rule)) {
            continue;
        }
        page.row(name(rule), rule_sentence(rule), column,
                 is_remarkable(rule) ? style::strong : style::plain);
        for (const std::string &detail : rule_details(rule)) {
            page.paragraph(6, detail);
        }
    }
    write_rules_aside(page, record);
}

constexpr size_t facts_column = 17;

} // namespace

std::string explain_text(const decision_record &record, const text_options &options) {
    text_page page(options);
    write_decision(page, record);
    page.heading("Transaction");
    write_rows(page, transaction_facts(record), facts_column);
    write_missing(page, record);
    write_notes(page, record);
    write_dns(page, record);
    write_rules(page, record);
    write_block_maps(page, record);
    write_block_lists(page, record);
    page.heading("Where");
    write_rows(page, circumstances(record), facts_column);
    if (const std::string line = replayer_line(record); !line.empty()) {
        page.heading("The replayer's line");
        page.paragraph(2, line);
    }
    return page.take();
}

std::optional<std::string> explain_rule_text(const decision_record &record, std::string_view rule,
                                             const text_options &options) {
    const auto found = std::find_if(record.rules.begin(), record.rules.end(),
                                    [rule](const rule_record &one) { return one.rule == rule; });
    if (found == record.rules.end()) {
        return std::nullopt;
    }
    text_page page(options);
    page.paragraph(0, printable(found->rule) + ": " + rule_sentence(*found), style::strong);
    write_rows(page, rule_in_depth(record, *found), facts_column);
    return page.take();
}

} // namespace quillfence::programs
