#include "explain_html.h"

#include "explain_words.h"
#include "html_page.h"
#include "record_words.h"
#include "text.h"

namespace quillfence::programs {

using namespace decision;
using data_files::printable;

namespace {

void write_head(html_page &page, const decision_record &record) {
    page.begin(headline(record));
    page.raw("<header class=\"").raw(word(record.decision.is)).raw("\">\n");
    page.element("h1", headline(record));
    page.list(what_decided(record));
    page.raw("\n</header>\n<main>\n");
}

void write_facts(html_page &page, const char *title, const std::vector<named_text> &rows) {
    page.heading(title);
    page.raw("<table class=\"facts\">\n<tbody>\n");
    for (const named_text &row : rows) {
        page.raw("<tr>").row_name(row.first);
        page.element("td", row.second);
        page.raw("</tr>\n");
    }
    page.end_table();
}

void write_sentences(html_page &page, const char *title, const std::vector<std::string> &all) {
    if (!all.empty()) {
        page.heading(title);
        page.list(all);
        page.raw("\n");
    }
}

std::vector<std::string> notes_of(const decision_record &record) {
    std::vector<std::string> all;
    for (const note &one : record.notes) {
        all.push_back(printable(one.severity) + ": " + printable(one.text));
    }
    for (const error_line &one : record.errors) {
        all.push_back("error: " + printable(one.module) + ' ' + printable(one.function) +
                      "(): " + printable(one.text));
    }
    return all;
}

void write_dns(html_page &page, const decision_record &record) {
    if (record.dns.empty()) {
        return;
    }
    page.heading("DNS");
    page.element("p", dns_summary(record));
    page.raw("\n");
    page.begin_table("names", {"question", "answer", "took"});
    for (const dns_record &dns : record.dns) {
        page.raw("<tr>").row_name(dns_question(dns));
        page.element("td", dns_answer(dns));
        page.raw("<td class=\"time\">").text(dns_effort(dns)).raw("</td></tr>\n");
    }
    page.end_table();
}

void write_rules(html_page &page, const decision_record &record) {
    if (record.rules.empty()) {
        return;
    }
    page.heading("Rules");
    page.begin_table("names", {"rule", "what it did"});
    for (const rule_record &rule : record.rules) {
        page.raw(is_remarkable(rule) ? "<tr class=\"told\">" : "<tr>")
            .row_name(printable(rule.rule));
        page.raw("<td><span class=\"did\">").text(rule_sentence(rule)).raw("</span>");
        page.list(rule_details(rule));
        page.raw("</td></tr>\n");
    }
    page.end_table();
}

void write_block_maps(html_page &page, const decision_record &record) {
    if (record.block_maps.empty()) {
        return;
    }
    page.heading("Block maps");
    page.begin_table("names", {"map", "outcome"});
    for (const block_map_record &map : record.block_maps) {
        page.raw("<tr>").row_name(printable(map.map));
        page.element("td", block_map_sentence(map));
        page.raw("</tr>\n");
    }
    page.end_table();
}

void write_block_lists(html_page &page, const decision_record &record) {
    if (record.dns_block_lists.empty()) {
        return;
    }
    page.heading("DNS block lists");
    page.begin_table("names", {"zone", "outcome"});
    for (const dns_block_list_record &list : record.dns_block_lists) {
        page.raw("<tr>").row_name(printable(list.zone));
        page.element("td", block_list_sentence(list));
        page.raw("</tr>\n");
    }
    page.end_table();
}

void write_replayer_line(html_page &page, const decision_record &record) {
    const std::string line = replayer_line(record);
    if (!line.empty()) {
        page.heading("The replayer's line");
        page.element("pre", line);
        page.raw("\n");
    }
}

} // namespace

std::string explain_html(const decision_record &record) {
    html_page page;
    write_head(page, record);
    write_facts(page, "Transaction", transaction_facts(record));
    if (record.decision.is != verdict::undecided) {
        write_sentences(page, "Missing", missing_sentences(record));
    }
    write_sentences(page, "Notes", notes_of(record));
    write_dns(page, record);
    write_rules(page, record);
    write_block_maps(page, record);
    write_block_lists(page, record);
    write_facts(page, "Where", circumstances(record));
    write_replayer_line(page, record);
    page.raw("</main>\n");
    return page.end();
}

} // namespace quillfence::programs
