#include "verify_command.h"

#include <iostream>
#include <memory>

#include "command_line.h"

namespace quillfence::data_tool {

exit_status verify(const verify_arguments &arguments, std::ostream &out) {
    const tree in = verify_tree(arguments.base);
    if (arguments.json) {
        write_json(in, out);
    } else {
        write_lines(in, out);
    }
    const uint32_t errors = count_of(in, severity::error);
    const uint32_t warnings = count_of(in, severity::warning);
    complain(counted(in.files, "file") + " checked: " + counted(errors, "error") + ", " +
             counted(warnings, "warning"));
    return errors || warnings ? exit_status::no : exit_status::done;
}

command verify_command() {
    auto to = std::make_shared<verify_arguments>();
    return {
        .name = "verify",
        .description = "Look all files of a configuration over",
        .options = {{"BASEDIR", &to->base,
                     "The server's c:/quillfence, or a copy of it; nothing in it is changed"},
                    {"--json", &to->json, "Write a JSON object"}},
        .footer = R"(One finding a line, as file:line: severity: text:
  error    the file or line does not do what it is there for
  warning  redundant, contradictory, or probably meant differently
  info     worth knowing
Exit status 1 when there is an error or a warning.)",
        .run = [to] { return verify(*to, std::cout); },
    };
}

} // namespace quillfence::data_tool
