#include "explain_html.h"

#include "explain_words.h"
#include "record_words.h"
#include "text.h"

namespace quillfence::programs {

using namespace decision;
using data_files::printable;

namespace {

// The page may load nothing and run nothing.
constexpr char head[] = R"(<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<style>
:root { color-scheme: light dark; --page: #fbfbf9; --ink: #1f2328; --soft: #5f666d;
  --line: #d9dad6; --raised: #f1f1ed; --reject: #b3261e; --accept: #1e7145; --undecided: #8a5a00; }
@media (prefers-color-scheme: dark) {
  :root { --page: #16181c; --ink: #e6e6e3; --soft: #a0a6ad; --line: #33373d;
    --raised: #202329; --reject: #ff8a80; --accept: #7fd1a3; --undecided: #f0c060; } }
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 2rem 1.5rem 4rem; max-width: 62rem; background: var(--page);
  color: var(--ink); font: 16px/1.5 system-ui, "Segoe UI", sans-serif; overflow-wrap: anywhere; }
header { border-left: .5rem solid var(--verdict); padding: .25rem 0 .25rem 1rem; }
header.reject { --verdict: var(--reject); } header.accept { --verdict: var(--accept); }
header.undecided { --verdict: var(--undecided); }
h1 { color: var(--verdict); font-size: 1.6rem; font-weight: 600; line-height: 1.3; margin: 0; }
h2 { font-size: 1.1rem; font-weight: 600; margin: 2.25rem 0 .5rem; }
p { margin: .25rem 0; color: var(--soft); }
table { border-collapse: collapse; width: 100%; }
th, td { padding: .35rem .75rem; text-align: left; vertical-align: top; font-weight: 400; }
th:first-child, td:first-child { padding-left: .5rem; }
thead th { color: var(--soft); font-size: .9rem; }
tbody tr { border-top: 1px solid var(--line); }
tbody th { width: 30%; }
.facts th { width: 9rem; color: var(--soft); white-space: nowrap; }
.time { white-space: nowrap; width: 1%; font-variant-numeric: tabular-nums; }
.told { background: var(--raised); }
.told th, .told .did { font-weight: 600; }
ul { margin: .25rem 0 0; padding-left: 1.1rem; } main > ul { padding-left: 1.6rem; }
header ul { margin: .5rem 0 0; padding: 0; list-style: none; }
pre { margin: 0; padding: .5rem .75rem; background: var(--raised); white-space: pre-wrap; }
pre, .names tbody th { font-family: ui-monospace, "Cascadia Mono", monospace;
  font-size: .9rem; }
@media (max-width: 36rem) {
  body { padding: 1rem .75rem 3rem; } h1 { font-size: 1.3rem; }
  th, td { padding: .35rem .4rem; } .facts tbody th { width: 6.5rem; }
  .names tbody tr, .names tbody th, .names td { display: block; width: auto; }
  .names thead { display: none; } .names tbody th { padding-bottom: 0; font-weight: 600; }
  .names td { padding: 0 .4rem .35rem .5rem; } }
</style>
)";

std::string escaped(std::string_view text) {
    std::string html;
    for (const char c : text) {
        switch (c) {
        case '&':
            html += "&amp;";
            break;
        case '<':
            html += "&lt;";
            break;
        case '>':
            html += "&gt;";
            break;
        case '"':
            html += "&quot;";
            break;
        default:
            html += c;
        }
    }
    return html;
}

class html_page {
  public:
    html_page &raw(std::string_view html) {
        html_.append(html);
        return *this;
    }
    html_page &text(std::string_view words) {
        html_.append(escaped(words));
        return *this;
    }
    void element(const char *name, std::string_view words) {
        raw("<").raw(name).raw(">").text(words).raw("</").raw(name).raw(">");
    }
    void heading(std::string_view words) {
        element("h2", words);
        raw("\n");
    }
    // Nothing for an empty list.
    void list(const std::vector<std::string> &items) {
        if (items.empty()) {
            return;
        }
        raw("<ul>");
        for (const std::string &item : items) {
            element("li", item);
        }
        raw("</ul>");
    }
    void begin_table(const char *kind, std::initializer_list<const char *> columns) {
        raw("<table class=\"").raw(kind).raw("\">\n<thead><tr>");
        for (const char *column : columns) {
            raw("<th scope=\"col\">").text(column).raw("</th>");
        }
        raw("</tr></thead>\n<tbody>\n");
    }
    html_page &row_name(std::string_view words) {
        return raw("<th scope=\"row\">").text(words).raw("</th>");
    }
    void end_table() {
        raw("</tbody>\n</table>\n");
    }
    std::string take() {
        return std::move(html_);
    }

  private:
    std::string html_;
};

void write_head(html_page &page, const decision_record &record) {
    page.raw(head).element("title", headline(record));
    page.raw("\n</head>\n<body>\n<header class=\"").raw(word(record.decision.is)).raw("\">\n");
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
    page.raw("</main>\n</body>\n</html>\n");
    return page.take();
}

} // namespace quillfence::programs
