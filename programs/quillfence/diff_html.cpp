#include "diff_summary.h"
#include "html_page.h"

namespace quillfence::programs {

static void write_row(html_page &page, const std::vector<table_cell> &row) {
    page.raw("<tr>").row_name(row.front().front());
    for (size_t i = 1; i < row.size(); ++i) {
        page.raw("<td>").text(row[i].front());
        page.list({row[i].begin() + 1, row[i].end()});
        page.raw("</td>");
    }
    page.raw("</tr>\n");
}

static void write_table(html_page &page, const summary_table &table) {
    page.heading(table.title);
    if (!table.rows.empty()) {
        page.begin_table("counts", table.columns);
        for (const auto &row : table.rows) {
            write_row(page, row);
        }
        page.end_table();
    }
    for (const std::string &remark : table.remarks) {
        page.element("p", remark);
        page.raw("\n");
    }
}

std::string diff_html(const run_summary &summary) {
    html_page page;
    page.begin(summary.headline);
    page.raw("<header>\n");
    page.element("h1", summary.headline);
    page.list(summary.sentences);
    page.raw("\n</header>\n<main>\n");
    for (const summary_table &table : summary.tables) {
        write_table(page, table);
    }
    page.raw("</main>\n");
    return page.end();
}

} // namespace quillfence::programs
