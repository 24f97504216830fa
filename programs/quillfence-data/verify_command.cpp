#include "verify_command.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <memory>
#include <vector>

#include "command_line.h"
#include "findings_output.h"

namespace quillfence::data_tool {

namespace {

struct findings_format {
    const char *name;
    void (*write)(const tree &in, std::ostream &out);
};

struct severity_name {
    const char *name;
    severity level;
};

} // namespace

static constexpr findings_format formats[] = {{"text", write_lines},
                                              {"json", write_json},
                                              {"sarif", write_sarif},
                                              {"github", write_commands}};
static constexpr severity_name severities[] = {
    {"error", severity::error}, {"warning", severity::warning}, {"info", severity::info}};

// The row of a table whose name has been checked.
template <class Row, size_t size>
static const Row &row_of(const Row (&rows)[size], const std::string &name) {
    return *std::find_if(std::begin(rows), std::end(rows),
                         [&](const Row &row) { return name == row.name; });
}

template <class Row, size_t size>
static std::vector<std::string> names_of(const Row (&rows)[size]) {
    std::vector<std::string> names;
    for (const Row &row : rows) {
        names.emplace_back(row.name);
    }
    return names;
}

exit_status verify(const verify_arguments &arguments, std::ostream &out) {
    const tree in = verify_tree(arguments.base);
    row_of(formats, arguments.format).write(in, out);
    complain(counted(in.files, "file") +
             " checked: " + counted(count_of(in, severity::error), "error") + ", " +
             counted(count_of(in, severity::warning), "warning"));
    const severity least = row_of(severities, arguments.error_on).level;
    const bool in_order =
        std::none_of(in.findings.begin(), in.findings.end(),
                     [&](const finding &found) { return found.level() <= least; });
    return in_order ? exit_status::done : exit_status::no;
}

command verify_command() {
    auto to = std::make_shared<verify_arguments>();
    return {
        .name = "verify",
        .description = "Look all files of a configuration over",
        .options = {{"BASEDIR",
                     &to->base,
                     "The server's c:/quillfence, or a copy of it; nothing in it is changed",
                     {.check = not_empty()}},
                    {"--format",
                     &to->format,
                     "How findings are written: text (the default), json, sarif (2.1.0), or "
                     "github, the commands of a workflow",
                     {.value = "FORMAT", .check = one_of(names_of(formats))}},
                    {"--json",
                     flag_call{[to] { to->format = "json"; }},
                     "The same as --format json",
                     {.excludes = {"--format"}}},
                    {"--error-on",
                     &to->error_on,
                     "Exit status 1 from this severity on: error, warning (the default), info",
                     {.value = "SEVERITY", .check = one_of(names_of(severities))}}},
        .footer = R"(One finding a line, as file:line: severity: text:
  error    the file or line does not do what it is there for
  warning  redundant, contradictory, or probably meant differently
  info     worth knowing
The other formats tell the id of each finding as well; docs/findings.md has them all.
Exit status 1 when there is an error or a warning; --error-on sets the measure.)",
        .run = [to] { return verify(*to, std::cout); },
    };
}

} // namespace quillfence::data_tool
