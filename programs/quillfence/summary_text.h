// What a run over many decisions has come to: a headline, sentences and tables, the same content
// for a terminal and for a page.
//
// All text is printable ASCII; bytes of others stand as \xNN.
#pragma once

#include <string>
#include <vector>

namespace quillfence::programs {

// A cell has a line, or several in a table's last column.
using table_cell = std::vector<std::string>;

struct summary_table {
    std::string title;
    std::vector<std::string> columns;
    std::vector<std::vector<table_cell>> rows;
    std::vector<std::string> remarks; // below it
};

struct run_summary {
    std::string headline;
    std::vector<std::string> sentences;
    std::vector<summary_table> tables; // none of them without a row or remark
};

// Adds a table that has a row or a remark.
void add_table(run_summary &to, summary_table table);

// For a terminal or a mail.
std::string summary_text(const run_summary &summary);

} // namespace quillfence::programs
