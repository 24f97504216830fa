// The page about the rules says what the rule table says.
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "quillfence-checks.h"
#include "vcspamrule.h"

namespace quillfence::testing {

namespace {

using cells = std::vector<std::string>;

cells cells_of(const std::string &line) {
    cells found;
    std::istringstream in(line.substr(1));
    for (std::string cell; std::getline(in, cell, '|');) {
        const size_t first = cell.find_first_not_of(' ');
        const size_t last = cell.find_last_not_of(' ');
        found.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
    }
    return found;
}

// The rows of the page's table that begins with this heading line.
std::vector<cells> table_after(const std::string &heading) {
    std::ifstream in(QUILLFENCE_DOCS "/rules.md", std::ios::binary);
    EXPECT_TRUE(in) << "no page " QUILLFENCE_DOCS "/rules.md";
    std::vector<cells> rows;
    bool inside = false;
    for (std::string line; std::getline(in, line);) {
        if (line == heading) {
            inside = true;
            std::getline(in, line); // the row of dashes
        } else if (inside && !line.starts_with("|")) {
            break;
        } else if (inside) {
            rows.push_back(cells_of(line));
        }
    }
    return rows;
}

std::string quoted(const std::string &name) {
    return "`" + name + "`";
}

std::string mark(bool set) {
    return set ? "yes" : "-";
}

} // namespace

TEST(rules_page, names_order_and_switches) {
    std::vector<cells> want;
    for (const rule_row &row : rule_rows()) {
        want.push_back({std::to_string(want.size() + 1), quoted(row.name), mark(row.mua),
                        mark(row.ndr), mark(row.localhost), mark(row.ipv6),
                        mark(is_reportable_rule(row.name))});
    }
    std::vector<cells> got =
        table_after("| # | rule | MUA | bounce | local | IPv6 | reported | hits when |");
    for (cells &row : got) {
        ASSERT_EQ(row.size(), 8u);
        EXPECT_FALSE(row.back().empty()) << row[1] << ": when does it hit?";
        row.pop_back();
    }
    EXPECT_EQ(got, want);
}

TEST(rules_page, texts_and_pages) {
    std::vector<cells> want;
    for (const rule_row &row : rule_rows()) {
        want.push_back(
            {quoted(row.name), row.message->body, row.message->page ? row.message->page : "-"});
    }
    EXPECT_EQ(table_after("| rule | text | page |"), want);
}

} // namespace quillfence::testing
