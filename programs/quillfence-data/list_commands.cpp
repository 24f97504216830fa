#include "list_commands.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "bulk_input.h"
#include "command_line.h"
#include "engine_messages.h"
#include "folder.h"
#include "list_files.h"
#include "list_line.h"
#include "list_search.h"
#include "text.h"
#include "vc_text.h"

namespace quillfence::data_tool {

// --- editing ---

namespace {

// A list that is to be edited.
struct edited_list {
    const configuration_file *known; // null for one that the engine does not read
    std::string name;                // in its folder
    std::string path;
};

} // namespace

// The engine's file of this name, whose letter case does not count, as it doesn't for the engine.
static const configuration_file *catalogued(const std::string &name) {
    for (const configuration_file &file : configuration_files) {
        if (_stricmp(path_in_base(file), name.c_str()) == 0) {
            return &file;
        }
    }
    return nullptr;
}

// The file that the engine would read for the list, and not another one beside it.
static edited_list list_in(const std::string &directory, const std::string &name) {
    const configuration_file *const known = catalogued(name);
    std::string found = known ? name_below(directory, path_in_base(*known)) : name;
    std::string path = joined(directory, found);
    return {.known = known, .name = std::move(found), .path = std::move(path)};
}

// Throws what the engine's operation answers: null on success. A success that it complained about
// may be none, such as when it could not see whether there is a list.
static void fail_with(const edited_list &list, const std::string &entry, const char *answer,
                      engine_messages *messages) {
    const std::string reason = messages->take();
    if (answer || !reason.empty()) {
        throw failure(list.path + ": " + printable(entry) + ": " +
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

static std::string why_no_entry(const edited_list &list, const std::string &entry) {
    if (entry.size() > longest_entry) {
        return "has more than " + std::to_string(longest_entry) + " characters";
    }
    if (!entry.empty() && (is_space(entry.front()) || entry.front() == '#')) {
        return "begins with white space or \"#\", so it would not be read as an entry";
    }
    if (std::string problem = why_no_line(entry); !problem.empty()) {
        return problem;
    }
    return list.known ? why_useless(list.known->kind, entry) : std::string();
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

static std::string why_no_list(const edited_list &list, bool force) {
    if (list.known ? has_lines(*list.known) : force) {
        return {};
    }
    if (list.known) {
        return "is no list of lines";
    }
    std::string names;
    for (const configuration_file &one : list_files()) {
        names += (names.empty() ? "" : ", ") + std::string(path_in_base(one));
    }
    return "nobody reads a list of this name; the engine's lists are " + names +
           " (--force adds to it all the same)";
}

// The entries of the opposite list in lower case, where the engine's edit, to which both lists have
// their names of the catalogue, would pass that list over: it is there in other letters, or this
// one is.
static std::set<std::string> opposites_out_of_sight(const std::string &directory,
                                                    const edited_list &list) {
    std::set<std::string> entries;
    if (!list.known || !list.known->opposite) {
        return entries;
    }
    const std::string opposite = name_below(directory, list.known->opposite);
    const std::string path = joined(directory, opposite);
    if ((list.name == path_in_base(*list.known) && opposite == list.known->opposite) ||
        !may_be_file(path)) {
        return entries;
    }
    std::string bytes;
    if (const uint32_t error = read_file(path, &bytes)) {
        throw failure(file_error(path, error));
    }
    for (const text_line &line : lines_of(bytes)) {
        const std::string_view text = line.text.substr(0, line.text.find_last_not_of('\r') + 1);
        entries.insert(lower(pattern_of_line(std::string(text).c_str())));
    }
    return entries;
}

static const char *add_entry(const list_edit_arguments &arguments, const edited_list &list) {
    if (opposites_out_of_sight(arguments.directory, list).contains(lower(arguments.entry))) {
        return list_opposite;
    }
    const bool with_comment = !arguments.comment.empty();
    return vc_add_entry(arguments.directory.c_str(), list.name.c_str(), arguments.entry.c_str(),
                        with_comment ? arguments.comment.c_str() : nullptr, _stricmp);
}

exit_status list_add(const list_edit_arguments &arguments, std::ostream &out) {
    const edited_list list = list_in(arguments.directory, arguments.list);
    if (const std::string why = why_no_list(list, arguments.force); !why.empty()) {
        throw failure(list.path + ": " + why);
    }
    std::string problem = why_no_entry(list, arguments.entry);
    if (problem.empty() && !arguments.comment.empty()) {
        const std::string comment_problem = why_no_line(arguments.comment);
        problem = comment_problem.empty() ? "" : "its comment " + comment_problem;
    }
    if (!problem.empty()) {
        throw failure(list.path + ": " + printable(arguments.entry) + ": " + problem);
    }
    engine_messages messages;
    fail_with(list, arguments.entry, add_entry(arguments, list), &messages);
    out << list.path << ": " << printable(arguments.entry)
        << (arguments.comment.empty() ? " added\n" : ": comment set\n");
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
static void take_line(std::string_view line, const edited_list &list, bulk_input *in,
                      bulk_entries *to) {
    if (is_blank(line)) {
        return;
    }
    if (has_comments(list.known)) {
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
    if (const std::string problem = why_no_entry(list, entry); !problem.empty()) {
        in->complain(quoted(entry) + ": " + problem);
    }
    to->texts.push_back(entry);
    to->lines.push_back(in->number());
    in->require_room(to->texts.size());
}

static bulk_entries read_entries(const edited_list &list, bulk_input *in) {
    bulk_entries read;
    for (std::string_view line; in->next(&line);) {
        take_line(line, list, in, &read);
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
                                  const std::vector<uint64_t> &lines, const edited_list &list,
                                  bulk_input *in) {
    for (size_t i = 0; i < all.size(); ++i) {
        if (all[i].outcome == addition::opposed) {
            in->complain_of(lines[i],
                            quoted(all[i].entry) + " is in the opposite list, " +
                                (list.known && list.known->opposite ? list.known->opposite : ""));
        }
    }
}

// The engine's edit of all entries: its answer.
static const char *edit_list(const std::string &directory, const edited_list &list,
                             std::vector<list_addition> *all) {
    const std::set<std::string> opposites = opposites_out_of_sight(directory, list);
    const char *answer = nullptr;
    for (list_addition &one : *all) {
        if (opposites.contains(lower(one.entry))) {
            one.outcome = addition::opposed;
            answer = list_opposite;
        }
    }
    return answer ? answer
                  : vc_add_entries(directory.c_str(), list.name.c_str(), all->data(),
                                   static_cast<uint32_t>(all->size()));
}

static std::vector<list_addition> add_entries(const std::string &directory, const edited_list &list,
                                              const bulk_entries &entries, bulk_input *in) {
    std::vector<list_addition> all;
    all.reserve(entries.texts.size());
    for (const std::string &text : entries.texts) {
        all.push_back({text.c_str(), addition::added});
    }
    if (all.empty()) {
        return all;
    }
    engine_messages messages;
    const char *const answer = edit_list(directory, list, &all);
    const std::string reason = messages.take();
    if (answer == list_opposite) {
        complain_of_opposites(all, entries.lines, list, in);
        in->require_sound(list.path);
    }
    if (answer || !reason.empty()) {
        throw failure(list.path + ": " + (answer ? answer : "perhaps not done, look at the list") +
                      (reason.empty() ? "" : " (" + reason + ')'));
    }
    return all;
}

exit_status list_add_all(const list_bulk_arguments &arguments, std::ostream &out) {
    const edited_list list = list_in(arguments.directory, arguments.list);
    if (const std::string why = why_no_list(list, arguments.force); !why.empty()) {
        throw failure(list.path + ": " + why);
    }
    bulk_input in(arguments.from);
    const bulk_entries entries = read_entries(list, &in);
    in.require_sound(list.path);
    const std::vector<list_addition> all = add_entries(arguments.directory, list, entries, &in);
    out << list.path << ": " << counted(count_of(all, addition::added), "entry", "entries")
        << " added"
        << passed_over_text(count_of(all, addition::present), count_of(all, addition::repeated));
    if (entries.comments) {
        out << "; " << counted(entries.comments, "comment of an entry", "comments of entries")
            << " left out";
    }
    out << '\n';
    return exit_status::done;
}

exit_status list_del(const list_edit_arguments &arguments, std::ostream &out) {
    const edited_list list = list_in(arguments.directory, arguments.list);
    const bool there = may_be_file(list.path);
    engine_messages messages;
    fail_with(list, arguments.entry,
              vc_del_entry(arguments.directory.c_str(), list.name.c_str(), arguments.entry.c_str(),
                           arguments.comment_only, _stricmp),
              &messages);
    out << list.path << ": "
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
