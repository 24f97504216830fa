// The pages that list the rules say what the rule table says.
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

constexpr char rules_page[] = QUILLFENCE_DOCS "/rules.md";
constexpr char security_page[] = QUILLFENCE_DOCS "/security.md";

// The rows of the page's table that begins with this heading line.
std::vector<cells> table_after(const char *page, const std::string &heading) {
    std::ifstream in(page, std::ios::binary);
    EXPECT_TRUE(in) << "no page " << page;
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

std::vector<std::string> split(const std::string &text, const std::string &separator) {
    std::vector<std::string> parts;
    size_t begin = 0;
    for (size_t end; (end = text.find(separator, begin)) != std::string::npos;
         begin = end + separator.size()) {
        parts.push_back(text.substr(begin, end - begin));
    }
    parts.push_back(text.substr(begin));
    return parts;
}

// "7", "1, 2" and "24 to 26".
std::vector<std::string> numbers_of(const std::string &cell) {
    std::vector<std::string> numbers;
    for (const std::string &part : split(cell, ", ")) {
        const std::vector<std::string> ends = split(part, " to ");
        for (int number = std::stoi(ends.front()); number <= std::stoi(ends.back()); ++number) {
            numbers.push_back(std::to_string(number));
        }
    }
    return numbers;
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
    std::vector<cells> got = table_after(
        rules_page, "| # | rule | MUA | bounce | local | IPv6 | reported | hits when |");
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
    EXPECT_EQ(table_after(rules_page, "| rule | text | page |"), want);
}

// The page about security puts rules together that fail in the same way: "1, 2", "24 to 26". Each
// rule stands there once, in order, under its own number and name.
TEST(security_page, each_rule_in_order) {
    std::vector<std::string> got_numbers, got_names;
    for (const cells &row : table_after(security_page, "| # | rule | depends on | in doubt |")) {
        ASSERT_EQ(row.size(), 4u);
        for (const std::string &number : numbers_of(row[0])) {
            got_numbers.push_back(number);
        }
        for (const std::string &name : split(row[1], ", ")) {
            got_names.push_back(name);
        }
        EXPECT_FALSE(row[2].empty()) << row[1] << ": what does it depend on?";
        EXPECT_FALSE(row[3].empty()) << row[1] << ": what does it do in doubt?";
    }
    std::vector<std::string> want_numbers, want_names;
    for (const rule_row &row : rule_rows()) {
        want_names.push_back(quoted(row.name));
        want_numbers.push_back(std::to_string(want_names.size()));
    }
    EXPECT_EQ(got_numbers, want_numbers);
    EXPECT_EQ(got_names, want_names);
}

} // namespace quillfence::testing
