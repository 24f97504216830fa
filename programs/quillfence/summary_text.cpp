#include "summary_text.h"

#include <algorithm>

#include "text_page.h"

namespace quillfence::programs {

static constexpr size_t widest_column = 60;

static bool is_number(const std::string &text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Numbers stand to the right.
static std::string padded(const std::string &text, size_t width) {
    const std::string blanks(width - std::min(width, text.size()), ' ');
    return is_number(text) ? blanks + text : text + blanks;
}

static std::vector<size_t> widths_of(const summary_table &table) {
    std::vector<size_t> widths;
    for (const std::string &column : table.columns) {
        widths.push_back(column.size());
    }
    for (const auto &row : table.rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], std::min(row[i].front().size(), widest_column));
        }
    }
    return widths;
}

static void append_row(std::string &out, const std::vector<table_cell> &row,
                       const std::vector<size_t> &widths) {
    std::string line;
    size_t indent = 2;
    for (size_t i = 0; i < row.size(); ++i) {
        const bool last = i + 1 == row.size();
        line += "  " + (last && !is_number(row[i].front()) ? row[i].front()
                                                           : padded(row[i].front(), widths[i]));
        indent += last ? 0 : widths[i] + 2;
    }
    out += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
    for (size_t i = 1; i < row.back().size(); ++i) {
        out += std::string(indent + 2, ' ') + row.back()[i] + '\n';
    }
}

static void append_table(std::string &out, const summary_table &table) {
    out += '\n' + table.title + '\n';
    if (!table.rows.empty()) {
        const std::vector<size_t> widths = widths_of(table);
        std::vector<table_cell> heading;
        for (const std::string &column : table.columns) {
            heading.push_back({column});
        }
        append_row(out, heading, widths);
        for (const auto &row : table.rows) {
            append_row(out, row, widths);
        }
    }
    const text_options options;
    text_page remarks(options);
    for (const std::string &remark : table.remarks) {
        remarks.paragraph(2, remark, style::plain, 2);
    }
    out += remarks.take();
}

void add_table(run_summary &to, summary_table table) {
    if (!table.rows.empty() || !table.remarks.empty()) {
        to.tables.push_back(std::move(table));
    }
}

std::string summary_text(const run_summary &summary) {
    std::string out = summary.headline + '\n';
    for (const std::string &sentence : summary.sentences) {
        out += "  " + sentence + '\n';
    }
    for (const summary_table &table : summary.tables) {
        append_table(out, table);
    }
    return out;
}

} // namespace quillfence::programs
