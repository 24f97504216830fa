#include "list_commands.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <utility>
#include <vector>

#include "bulk_input.h"
#include "command_line.h"
#include "engine_messages.h"
#include "list_files.h"
#include "list_search.h"
#include "text.h"
#include "vc_text.h"

namespace quillfence::data_tool {

// --- editing ---

static std::string list_path(const list_edit_arguments &arguments) {
    return joined(arguments.directory, arguments.list);
}

// Throws what the engine's operation answers: null on success. A success that it complained about
// may be none, such as when it could not see whether there is a list.
static void fail_with(const list_edit_arguments &arguments, const char *answer,
                      engine_messages *messages) {
    const std::string reason = messages->take();
    if (answer || !reason.empty()) {
        throw failure(list_path(arguments) + ": " + printable(arguments.entry) + ": " +
                      (answer ? answer : "perhaps not done, look at the list") +
                      (reason.empty() ? "" : " (" + reason + ')'));
    }
}

// Texts that would not come back from the file as the one line that they are.
static std::string why_no_line(const std::string &text) {
    if (std::any_of(text.begin(), text.end(),
                    [](char c) { return c == '\n' || c == '\r' || c == '\0'; })) {
        return "holds a line end";
    }
    return {};
}

static std::string why_no_entry(const std::string &list_name, const std::string &entry) {
    if (entry.size() > longest_entry) {
        return "has more than " + std::to_string(longest_entry) + " characters";
    }
    if (!entry.empty() && (is_space(entry.front()) || entry.front() == '#')) {
        return "begins with white space or \"#\", so it would not be read as an entry";
    }
    if (std::string problem = why_no_line(entry); !problem.empty()) {
        return problem;
    }
    const configuration_file *const list = find_list_file(list_name);
    return list ? why_useless(list->kind, entry) : std::string();
}

static void write_matches(const found_entries &all, const std::string &value, std::ostream &out) {
    for (const list_match &one : all.matches) {
        out << one.file << (one.record ? ": record " : ":") << (one.record ? one.record : one.line)
            << ": " << printable(one.entry) << (one.comment.empty() ? "" : "  ")
            << printable(one.comment) << " (" << one.how << ")\n";
    }
    for (const auto &[first, second] : all.opposites) {
        out << first << " and " << second << " exclude each other, and both match: " << first
            << " comes first\n";
    }
    if (all.matches.empty()) {
        out << "nothing matches " << printable(value) << '\n';
    }
}

static void write_matches_json(const found_entries &all, std::ostream &out) {
    const char *separator = "";
    out << "{\"matches\":[";
    for (const list_match &one : all.matches) {
        out << separator << "{\"file\":" << json_text(one.file)
            << (one.record ? ",\"record\":" : ",\"line\":") << (one.record ? one.record : one.line)
            << ",\"entry\":" << json_text(one.entry);
        if (!one.comment.empty()) {
            out << ",\"comment\":" << json_text(one.comment);
        }
        out << ",\"how\":" << json_text(one.how) << '}';
        separator = ",";
    }
    out << "],\"first\":[";
    separator = "";
    for (const auto &[first, second] : all.opposites) {
        out << separator << "{\"list\":" << json_text(first) << ",\"before\":" << json_text(second)
            << '}';
        separator = ",";
    }
    out << "]}\n";
}

exit_status list_find(const list_find_arguments &arguments, std::ostream &out) {
    require_directory(arguments.directory, "give the one that holds the lists");
    if (arguments.value.empty()) {
        throw failure("nothing to look for; give a mail address or a client's address");
    }
    const found_entries all = find_everywhere(arguments.directory, arguments.value);
    if (arguments.json) {
        write_matches_json(all, out);
    } else {
        write_matches(all, arguments.value, out);
    }
    return all.matches.empty() ? exit_status::no : exit_status::done;
}

// Names are compared without regard to case, as the file system of the server does.
static const configuration_file *catalogued(const std::string &name) {
    for (const configuration_file &file : configuration_files) {
        if (_stricmp(path_in_base(file), name.c_str()) == 0) {
            return &file;
        }
    }
    return nullptr;
}

// Control files have lines, too, but the line editor must not touch a binary file.
static bool has_lines(const configuration_file &file) {
    switch (file.kind) {
    case file_kind::rule_names:
    case file_kind::map_names:
    case file_kind::zone_names:
    case file_kind::sender_networks:
        return true;
    default:
        return is_list(file);
    }
}

static std::string why_no_list(const std::string &name, bool force) {
    const configuration_file *const file = catalogued(name);
    if (file ? has_lines(*file) : force) {
        return {};
    }
    if (file) {
        return "is no list of lines";
    }
    std::string names;
    for (const configuration_file &list : list_files()) {
        names += (names.empty() ? "" : ", ") + std::string(path_in_base(list));
    }
    return "nobody reads a list of this name; the engine's lists are " + names +
           " (--force adds to it all the same)";
}

exit_status list_add(const list_edit_arguments &arguments, std::ostream &out) {
    if (const std::string why = why_no_list(arguments.list, arguments.force); !why.empty()) {
        throw failure(list_path(arguments) + ": " + why);
    }
    std::string problem = why_no_entry(arguments.list, arguments.entry);
    if (problem.empty() && !arguments.comment.empty()) {
        const std::string comment_problem = why_no_line(arguments.comment);
        problem = comment_problem.empty() ? "" : "its comment " + comment_problem;
    }
    if (!problem.empty()) {
        throw failure(list_path(arguments) + ": " + printable(arguments.entry) + ": " + problem);
    }
    engine_messages messages;
    const bool with_comment = !arguments.comment.empty();
    fail_with(arguments,
              vc_add_entry(arguments.directory.c_str(), arguments.list.c_str(),
                           arguments.entry.c_str(),
                           with_comment ? arguments.comment.c_str() : nullptr, _stricmp),
              &messages);
    out << list_path(arguments) << ": " << printable(arguments.entry)
        << (with_comment ? ": comment set\n" : " added\n");
    return exit_status::done;
}

// --- many at once ---

namespace {

// What the lines of a text come to.
struct bulk_entries {
    std::vector<std::string> texts;
    std::vector<uint64_t> lines; // of each
    uint64_t comments = 0;       // that belong to an entry
};

} // namespace

// Whether a list's lines may be comments. A list of names has none.
static bool has_comments(const configuration_file *list) {
    return !list || is_list(*list) || list->kind == file_kind::sender_networks;
}

static bool is_blank(std::string_view line) {
    return std::all_of(line.begin(), line.end(), is_space);
}

// Takes one line as the list's readers would: white space in front does not count there.
static void take_line(std::string_view line, const list_bulk_arguments &arguments, bulk_input *in,
                      bulk_entries *to) {
    if (is_blank(line)) {
        return;
    }
    if (has_comments(catalogued(arguments.list))) {
        if (line.front() == '\t') {
            ++to->comments; // the editor's, of the entry above
            return;
        }
        line.remove_prefix(static_cast<size_t>(
            std::find_if_not(line.begin(), line.end(), is_space) - line.begin()));
        if (line.front() == '#') {
            return;
        }
    }
    const std::string entry(line);
    if (const std::string problem = why_no_entry(arguments.list, entry); !problem.empty()) {
        in->complain(quoted(entry) + ": " + problem);
    }
    to->texts.push_back(entry);
    to->lines.push_back(in->number());
    in->require_room(to->texts.size());
}

static bulk_entries read_entries(const list_bulk_arguments &arguments, bulk_input *in) {
    bulk_entries read;
    for (std::string_view line; in->next(&line);) {
        take_line(line, arguments, in, &read);
    }
    return read;
}

static uint64_t count_of(const std::vector<list_addition> &all, addition outcome) {
    return static_cast<uint64_t>(
        std::count_if(all.begin(), all.end(),
                      [outcome](const list_addition &one) { return one.outcome == outcome; }));
}

// Names the lines that the opposite list stands against.
static void complain_of_opposites(const std::vector<list_addition> &all,
                                  const std::vector<uint64_t> &lines, const std::string &list,
                                  bulk_input *in) {
    const configuration_file *const file = catalogued(list);
    for (size_t i = 0; i < all.size(); ++i) {
        if (all[i].outcome == addition::opposed) {
            in->complain_of(lines[i], quoted(all[i].entry) + " is in the opposite list, " +
                                          (file && file->opposite ? file->opposite : ""));
        }
    }
}

// The engine's edit of all entries.
static std::vector<list_addition> add_entries(const list_bulk_arguments &arguments,
                                              const bulk_entries &entries, bulk_input *in) {
    const std::string path = joined(arguments.directory, arguments.list);
    std::vector<list_addition> all;
    all.reserve(entries.texts.size());
    for (const std::string &text : entries.texts) {
        all.push_back({text.c_str(), addition::added});
    }
    if (all.empty()) {
        return all;
    }
    engine_messages messages;
    const char *const answer = vc_add_entries(arguments.directory.c_str(), arguments.list.c_str(),
                                              all.data(), static_cast<uint32_t>(all.size()));
    const std::string reason = messages.take();
    if (answer == list_opposite) {
        complain_of_opposites(all, entries.lines, arguments.list, in);
        in->require_sound(path);
    }
    if (answer || !reason.empty()) {
        throw failure(path + ": " + (answer ? answer : "perhaps not done, look at the list") +
                      (reason.empty() ? "" : " (" + reason + ')'));
    }
    return all;
}

exit_status list_add_all(const list_bulk_arguments &arguments, std::ostream &out) {
    const std::string path = joined(arguments.directory, arguments.list);
    if (const std::string why = why_no_list(arguments.list, arguments.force); !why.empty()) {
        throw failure(path + ": " + why);
    }
    bulk_input in(arguments.from);
    const bulk_entries entries = read_entries(arguments, &in);
    in.require_sound(path);
    const std::vector<list_addition> all = add_entries(arguments, entries, &in);
    out << path << ": " << counted(count_of(all, addition::added), "entry", "entries") << " added"
        << passed_over_text(count_of(all, addition::present), count_of(all, addition::repeated));
    if (entries.comments) {
        out << "; " << counted(entries.comments, "comment of an entry", "comments of entries")
            << " left out";
    }
    out << '\n';
    return exit_status::done;
}

exit_status list_del(const list_edit_arguments &arguments, std::ostream &out) {
    const bool there = may_be_file(list_path(arguments));
    engine_messages messages;
    fail_with(arguments,
              vc_del_entry(arguments.directory.c_str(), arguments.list.c_str(),
                           arguments.entry.c_str(), arguments.comment_only, _stricmp),
              &messages);
    out << list_path(arguments) << ": "
        << (!there                   ? "there is no such list, nothing to remove"
            : arguments.comment_only ? printable(arguments.entry) + ": comment removed"
                                     : printable(arguments.entry) + " removed")
        << '\n';
    return exit_status::done;
}

// --- the command line ---

static command find_command() {
    auto to = std::make_shared<list_find_arguments>();
    return {
        .name = "find",
        .description = "Show every entry that matches a value",
        .options = {{"DIR", &to->directory, "The folder of the lists", {.check = not_empty()}},
                    {"VALUE", &to->value,
                     "A mail address, or a client's address, as the engine gets it"},
                    {"--json", &to->json, "Write a JSON object"}},
        .footer = "Exit status 1 when nothing matches.",
        .run = [to] { return list_find(*to, std::cout); },
    };
}

// One entry, or those of a text.
static exit_status add(const list_edit_arguments &one, const std::string &from) {
    if (!from.empty()) {
        return list_add_all({one.directory, one.list, from, one.force}, std::cout);
    }
    if (one.entry.empty()) {
        throw failure("give the entry to add, or --from and a text of entries");
    }
    return list_add(one, std::cout);
}

static std::vector<option> edit_options(list_edit_arguments *to, option_details entry, option own) {
    return {{"DIR", &to->directory, "The folder of the lists", {.check = not_empty()}},
            {"LIST", &to->list, "The list's name, as in from_whitelist", {.check = not_empty()}},
            {"ENTRY", &to->entry, "The entry, written as it is in the list", std::move(entry)},
            std::move(own)};
}

static command add_command() {
    auto to = std::make_shared<list_edit_arguments>();
    auto from = std::make_shared<std::string>();
    std::vector<option> options =
        edit_options(to.get(), {.required = false},
                     {"--comment", &to->comment,
                      "Set the comment of an entry that is there, instead of adding it"});
    options.push_back(
        {"--from",
         from.get(),
         "Add the entries of a text, one a line; - for standard input",
         {.value = "LINES", .check = not_empty(), .excludes = {"ENTRY", "--comment"}}});
    options.push_back({"--force", &to->force, "Also to a list that the engine does not read"});
    return {
        .name = "add",
        .description = "Add an entry to a list, which is made when missing",
        .options = std::move(options),
        .footer =
            R"(With --from all entries are added in one edit, or none: every wrong line is reported as
file:line: error: what is wrong, and then nothing is changed. Blank lines and comments
are passed over, and entries that are there already are counted.)",
        .run = [to, from] { return add(*to, *from); },
    };
}

static command del_command() {
    auto to = std::make_shared<list_edit_arguments>();
    return {
        .name = "del",
        .description = "Remove an entry and its comment from a list",
        .options = edit_options(
            to.get(), {}, {"--comment-only", &to->comment_only, "Remove only the entry's comment"}),
        .run = [to] { return list_del(*to, std::cout); },
    };
}

command list_command() {
    return {
        .name = "list",
        .description = "Ask and edit the white and black lists",
        .subcommands = {find_command(), add_command(), del_command()},
    };
}

} // namespace quillfence::data_tool
