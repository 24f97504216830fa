// What a comparison of two configurations has come to, put into words and tables: the same content
// for the terminal and for a page.
//
// All text is printable ASCII; bytes of others stand as \xNN.
#pragma once

#include <string>
#include <vector>

#include "batch.h"
#include "change_tally.h"
#include "diff_entries.h"

namespace quillfence::programs {

// A cell has a line, or several in a table's last column.
using table_cell = std::vector<std::string>;

struct summary_table {
    std::string title;
    std::vector<std::string> columns;
    std::vector<std::vector<table_cell>> rows;
    std::vector<std::string> remarks; // below it
};

struct diff_summary {
    std::string headline;
    std::vector<std::string> sentences;
    std::vector<summary_table> tables; // none of them without a row or remark
};

struct compared_names {
    std::string before; // "old", or "the configuration"
    std::string after;
    std::vector<std::string> changes; // of a what-if, as sentences
};

diff_summary summarise_diff(const compared_names &names, const decision::change_tally &tally,
                            const decision::batch_result &result, const unhit_entries &unhit);

// For a terminal or a mail.
std::string diff_text(const diff_summary &summary);
// As a page for a browser, see html_page.h.
std::string diff_html(const diff_summary &summary);

} // namespace quillfence::programs
