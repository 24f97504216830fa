#include "counter_commands.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <memory>
#include <vector>

#include "command_line.h"
#include "file_output.h"
#include "text.h"

namespace quillfence::data_tool {

// --- a table for people ---

namespace {

using cells = std::vector<std::string>;

} // namespace

static cells header_cells(const char *first) {
    cells row = {first};
    for (const counter_field &field : counter_fields) {
        row.emplace_back(field.name);
    }
    return row;
}

static cells count_cells(const std::string &first, const counts &count) {
    cells row = {first};
    for (const uint64_t value : count) {
        row.push_back(std::to_string(value));
    }
    return row;
}

// The first column is text, the others are numbers.
static void write_rows(const std::vector<cells> &rows, std::ostream &out) {
    std::vector<size_t> widths(rows.front().size());
    for (const cells &row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    for (const cells &row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string padding(widths[i] - row[i].size(), ' ');
            out << (i ? "  " : "") << (i ? padding + row[i] : row[i] + padding);
        }
        out << '\n';
    }
}

static counts total_of(const std::vector<counter_row> &rows) {
    counts total = {};
    for (const counter_row &row : rows) {
        total = sum_of(total, row.count);
    }
    return total;
}

static void write_table(const char *first, const std::vector<counter_row> &rows,
                        std::ostream &out) {
    std::vector<cells> table = {header_cells(first)};
    for (const counter_row &row : rows) {
        table.push_back(count_cells(row.when, row.count));
    }
    table.push_back(count_cells("total", total_of(rows)));
    write_rows(table, out);
}

static void write_tables(const counter_totals &totals, std::ostream &out) {
    write_table("day", totals.days, out);
    if (!totals.hours.empty()) {
        out << '\n';
        write_table("hour", totals.hours, out);
    }
}

// --- for programs ---

static void write_csv_rows(const char *period, const std::vector<counter_row> &rows,
                           std::ostream &out) {
    for (const counter_row &row : rows) {
        out << period << ',' << row.when;
        for (const uint64_t value : row.count) {
            out << ',' << value;
        }
        out << '\n';
    }
}

static void write_csv(const counter_totals &totals, std::ostream &out) {
    out << "period,start";
    for (const counter_field &field : counter_fields) {
        out << ',' << field.name;
    }
    out << '\n';
    write_csv_rows("day", totals.days, out);
    write_csv_rows("hour", totals.hours, out);
}

static void write_json_counts(const counts &count, std::ostream &out) {
    const char *separator = "";
    for (size_t i = 0; i < count.size(); ++i) {
        out << separator << '"' << counter_fields[i].name << "\":" << count[i];
        separator = ",";
    }
}

static void write_json_rows(const std::vector<counter_row> &rows, std::ostream &out) {
    const char *separator = "";
    for (const counter_row &row : rows) {
        out << separator << "{\"start\":" << json_text(row.when) << ',';
        write_json_counts(row.count, out);
        out << '}';
        separator = ",";
    }
}

static void write_json(const counter_totals &totals, std::ostream &out) {
    out << "{\"total\":{";
    write_json_counts(totals.total, out);
    out << "},\"days\":[";
    write_json_rows(totals.days, out);
    out << "],\"hours\":[";
    write_json_rows(totals.hours, out);
    out << "]}\n";
}

static exit_status write_page(const std::string &path, const counter_totals &totals,
                              std::ostream &out) {
    const std::string page = counter_page(totals);
    file_output file(path);
    file.write(page.data(), page.size());
    file.commit();
    out << path << ": " << counted(totals.days.size(), "day") << ", "
        << counted(totals.hours.size(), "hour") << '\n';
    return exit_status::done;
}

namespace {

using form_writer = void (*)(const counter_totals &totals, std::ostream &out);

} // namespace

static constexpr std::array<form_writer, 3> form_writers = {write_tables, write_csv, write_json};

exit_status counter_show(const counter_arguments &arguments, std::ostream &out) {
    const counter_totals totals = read_counters(arguments.directory);
    if (!arguments.html.empty()) {
        return write_page(arguments.html, totals, out);
    }
    form_writers[static_cast<size_t>(arguments.form)](totals, out);
    return exit_status::done;
}

// --- the command line ---

static command counter_show_command() {
    auto to = std::make_shared<counter_arguments>();
    return {
        .name = "show",
        .description = "Show the totals of days and hours",
        .options =
            {{"DIR", &to->directory, "A log folder, the one with qflog", {.check = not_empty()}},
             {"--json",
              flag_call{[to] { to->form = counter_form::json; }},
              "Write a JSON object",
              {.excludes = {"--csv", "--html"}}},
             {"--csv",
              flag_call{[to] { to->form = counter_form::csv; }},
              "Write CSV with a header",
              {.excludes = {"--html"}}},
             {"--html",
              &to->html,
              "Write a page with charts to this file",
              {.value = "FILE", .check = not_empty()}}},
        .run = [to] { return counter_show(*to, std::cout); },
    };
}

command counter_command() {
    return {
        .name = "counter",
        .description = "Show the counters of verdicts",
        .subcommands = {counter_show_command()},
    };
}

} // namespace quillfence::data_tool
