// Declares the subcommands that look after a server's own files: range, list, counter, verify.
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "counter_commands.h"
#include "data_program.h"
#include "list_commands.h"
#include "range_commands.h"
#include "verify.h"

namespace quillfence::data_tool {

namespace {

// Stores what a subcommand does when it is the one that was asked for.
template <class Arguments>
void on_choice(CLI::App *command, chosen_action &chosen, std::shared_ptr<Arguments> arguments,
               exit_status (*action)(const Arguments &, std::ostream &)) {
    command->callback([&chosen, arguments, action] {
        chosen = [arguments, action] { return action(*arguments, std::cout); };
    });
}

// --- range --------------------------------------------------------------------------------------

void add_range_list(CLI::App &range, chosen_action &chosen) {
    auto arguments = std::make_shared<range_list_arguments>();
    CLI::App *command = range.add_subcommand("list", "Show the ranges of a file");
    command->add_option("FILE", arguments->file, "A range file")->required();
    command->add_flag("--json", arguments->json, "Write a JSON array");
    on_choice(command, chosen, arguments, range_list);
}

CLI::App *add_range_edit(CLI::App &range, chosen_action &chosen, const char *name,
                         const char *description, std::shared_ptr<range_edit_arguments> arguments,
                         exit_status (*action)(const range_edit_arguments &, std::ostream &)) {
    CLI::App *command = range.add_subcommand(name, description);
    command->add_option("FILE", arguments->file, "A range file")->required();
    command
        ->add_option("LOW", arguments->low,
                     "The first address, or a network as in 192.0.2.0/24 (without HIGH)")
        ->required();
    command->add_option("HIGH", arguments->high, "The last address; the same as LOW without it");
    on_choice(command, chosen, arguments, action);
    return command;
}

void add_range_convert(CLI::App &range, chosen_action &chosen) {
    auto file = std::make_shared<std::string>();
    CLI::App *command =
        range.add_subcommand("convert", "Rewrite a file of the legacy version in the current one");
    command->add_option("FILE", *file, "A range file")->required();
    on_choice(command, chosen, file, range_convert);
}

} // namespace

void add_range_commands(CLI::App &program, chosen_action &chosen) {
    CLI::App *range =
        program.add_subcommand("range", "Show and edit range files (exempt_ips.range and such)");
    range->require_subcommand(1);
    add_range_list(*range, chosen);
    auto added = std::make_shared<range_edit_arguments>();
    add_range_edit(*range, chosen, "add", "Add a range to a file, which is made when missing",
                   added, range_add)
        ->add_option("--comment", added->comment,
                     "The range's comment; replaces that of a range that is there");
    add_range_edit(*range, chosen, "del", "Remove a range from a file",
                   std::make_shared<range_edit_arguments>(), range_del);
    add_range_convert(*range, chosen);
}

// --- list ---------------------------------------------------------------------------------------

namespace {

void add_list_find(CLI::App &list, chosen_action &chosen) {
    auto arguments = std::make_shared<list_find_arguments>();
    CLI::App *command = list.add_subcommand("find", "Show every entry that matches a value");
    command->add_option("DIR", arguments->directory, "The folder of the lists")->required();
    command
        ->add_option("VALUE", arguments->value,
                     "A mail address, or a client's address, as the engine gets it")
        ->required();
    command->footer("Exit status 1 when nothing matches.");
    on_choice(command, chosen, arguments, list_find);
}

CLI::App *add_list_edit(CLI::App &list, chosen_action &chosen, const char *name,
                        const char *description, std::shared_ptr<list_edit_arguments> arguments,
                        exit_status (*action)(const list_edit_arguments &, std::ostream &)) {
    CLI::App *command = list.add_subcommand(name, description);
    command->add_option("DIR", arguments->directory, "The folder of the lists")->required();
    command->add_option("LIST", arguments->list, "The list's name, as in from_whitelist")
        ->required();
    command->add_option("ENTRY", arguments->entry, "The entry, written as it is in the list")
        ->required();
    on_choice(command, chosen, arguments, action);
    return command;
}

} // namespace

void add_list_commands(CLI::App &program, chosen_action &chosen) {
    CLI::App *list = program.add_subcommand("list", "Ask and edit the white and black lists");
    list->require_subcommand(1);
    add_list_find(*list, chosen);
    auto added = std::make_shared<list_edit_arguments>();
    add_list_edit(*list, chosen, "add", "Add an entry to a list, which is made when missing", added,
                  list_add)
        ->add_option("--comment", added->comment,
                     "Set the comment of an entry that is there, instead of adding it");
    auto removed = std::make_shared<list_edit_arguments>();
    add_list_edit(*list, chosen, "del", "Remove an entry and its comment from a list", removed,
                  list_del)
        ->add_flag("--comment-only", removed->comment_only, "Remove only the entry's comment");
}

// --- counter ------------------------------------------------------------------------------------

void add_counter_commands(CLI::App &program, chosen_action &chosen) {
    CLI::App *counter = program.add_subcommand("counter", "Show the counters of verdicts");
    counter->require_subcommand(1);
    CLI::App *show = counter->add_subcommand("show", "Show the totals of days and hours");
    auto arguments = std::make_shared<counter_arguments>();
    show->add_option("DIR", arguments->directory, "A log folder, the one with qflog")->required();
    CLI::Option *json = show->add_flag_callback(
        "--json", [arguments] { arguments->form = counter_form::json; }, "Write a JSON object");
    CLI::Option *csv = show->add_flag_callback(
        "--csv", [arguments] { arguments->form = counter_form::csv; }, "Write CSV with a header");
    CLI::Option *html =
        show->add_option("--html", arguments->html, "Write a page with charts to this file");
    json->excludes(csv)->excludes(html);
    csv->excludes(html);
    on_choice(show, chosen, arguments, counter_show);
}

// --- verify -------------------------------------------------------------------------------------

void add_verify_command(CLI::App &program, chosen_action &chosen) {
    CLI::App *command = program.add_subcommand("verify", "Look all files of a configuration over");
    auto arguments = std::make_shared<verify_arguments>();
    command
        ->add_option("BASEDIR", arguments->base,
                     "The server's c:/quillfence, or a copy of it; nothing in it is changed")
        ->required();
    command->add_flag("--json", arguments->json, "Write a JSON object");
    command->footer(R"(One finding a line, as file:line: severity: text:
  error    the file or line does not do what it is there for
  warning  redundant, contradictory, or probably meant differently
  info     worth knowing
Exit status 1 when there is an error or a warning.)");
    on_choice(command, chosen, arguments, verify);
}

} // namespace quillfence::data_tool
