#include "list_commands.h"

#include <algorithm>
#include <cstring>
#include <iostream>
#include <memory>
#include <utility>
#include <vector>

#include "address_text.h"
#include "command_line.h"
#include "engine_messages.h"
#include "line_reader.h"
#include "list_files.h"
#include "list_line.h"
#include "open_file.h"
#include "quillfence-iprange.h"
#include "range_records.h"
#include "text.h"
#include "vc_text.h"

namespace quillfence::data_tool {

// --- finding ---

namespace {

// An entry that matches.
struct list_match {
    std::string file;
    uint32_t line = 0;   // of a list
    uint32_t record = 0; // of a range file
    std::string entry;
    std::string comment{};
    const char *how;
};

struct found {
    std::vector<list_match> matches;
    // Opposite lists that both match, by name; the one that comes first in front.
    std::vector<std::pair<const char *, const char *>> opposites{};
};

} // namespace

// What a line of a list is compared as, for people.
static const char *way_of(const configuration_file &list, const char *pattern) {
    const bool is_plain =
        list.matcher == __wildcardmatch && !std::strchr(pattern, '*') && is_plain_pattern(pattern);
    return is_plain ? "plain" : matcher_name(list);
}

// The lines of one list that match, as the engine reads and counts them.
static void find_in_list(const std::string &path, const configuration_file &list,
                         const std::string &value, std::vector<list_match> *matches) {
    open_file file;
    if (const uint32_t error = file.open(path)) {
        throw failure(file_error(path, error));
    }
    line_reader in;
    begin_lines(&in, file.handle(), longest_entry, true);
    uint32_t length = 0;
    for (uint32_t number = 1; const char *const line = next_line(&in, &length); ++number) {
        const char *const pattern = pattern_of_line(line);
        if (!is_comment(pattern) && list.matcher(pattern, value.c_str()) == 0) {
            matches->push_back(
                {.file = path, .line = number, .entry = pattern, .how = way_of(list, pattern)});
        }
    }
    if (in.error) {
        throw failure(file_error(path, in.error));
    }
}

// As the engine sees it, which finds these two addresses nowhere.
static bool holds(const range_record &record, uint32_t address) {
    return record.valid && address != 0 && address != 0xFFFFFFFF && record.low <= address &&
           address <= record.high;
}

// Nothing in it stops the engine's search.
static bool is_sound(const range_records &ranges) {
    return ranges.state == range_state::current && ranges.records.size() == ranges.counted &&
           std::all_of(ranges.records.begin(), ranges.records.end(),
                       [](const range_record &record) { return record.valid; });
}

// The engine's own answer; what it can't make of the file is complained about. Of a sound file it
// must be the answer that the records give.
static bool engine_finds(const std::string &path, const range_records &ranges,
                         const std::string &value, bool in_records) {
    const path_parts parts = parts_of(path);
    engine_messages messages;
    const bool listed = file_contains_ip_range_match(parts.name.c_str(), value.c_str(),
                                                     parts.directory.c_str()) != 0;
    const std::string problem = messages.take();
    if (is_sound(ranges) && listed != in_records) {
        throw failure(path + ": the engine's answer for " + value + " is another one" +
                      (problem.empty() ? "; has the file changed meanwhile?" : ": " + problem));
    }
    if (!problem.empty()) {
        complain(problem);
    }
    return listed;
}

static void find_in_ranges(const std::string &path, const std::string &value,
                           std::vector<list_match> *matches) {
    const std::optional<uint32_t> address = parse_address(value);
    if (!address || !may_be_file(path)) {
        return;
    }
    const range_records read = read_ranges(path);
    if (read.error) {
        throw failure(file_error(path, read.error));
    }
    const bool in_records =
        std::any_of(read.records.begin(), read.records.end(),
                    [&](const range_record &record) { return holds(record, *address); });
    const bool listed = engine_finds(path, read, value, in_records);
    for (const range_record &record : read.records) {
        if (listed && holds(record, *address)) {
            matches->push_back({.file = path,
                                .record = record.number,
                                .entry = range_text(record),
                                .comment = record.comment,
                                .how = "range"});
        }
    }
}

// Whether anything matched.
static bool find_in(const std::string &directory, const configuration_file &list,
                    const std::string &value, std::vector<list_match> *matches) {
    const size_t before = matches->size();
    const std::string path = joined(directory, path_in_base(list));
    if (may_be_file(path)) {
        find_in_list(path, list, value, matches);
    }
    if (list.range_file) {
        find_in_ranges(joined(directory, list.range_file), value, matches);
    }
    return matches->size() != before;
}

static bool has_name(const std::vector<std::string> &names, const char *name) {
    return name && std::find(names.begin(), names.end(), name) != names.end();
}

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

static std::string why_no_entry(const list_edit_arguments &arguments) {
    const std::string &entry = arguments.entry;
    if (entry.size() > longest_entry) {
        return "has more than " + std::to_string(longest_entry) + " characters";
    }
    if (!entry.empty() && (is_space(entry.front()) || entry.front() == '#')) {
        return "begins with white space or \"#\", so it would not be read as an entry";
    }
    if (std::string problem = why_no_line(entry); !problem.empty()) {
        return problem;
    }
    const configuration_file *const list = find_list_file(arguments.list);
    return list ? why_useless(list->kind, entry) : std::string();
}

static found find_everywhere(const list_find_arguments &arguments) {
    const engine_messages silent;
    found all;
    std::vector<std::string> matching;
    for (const configuration_file &list : list_files()) {
        const bool matches = find_in(arguments.directory, list, arguments.value, &all.matches);
        engine_messages::require_memory();
        if (!matches) {
            continue;
        }
        if (has_name(matching, list.opposite)) {
            all.opposites.emplace_back(list.opposite, path_in_base(list));
        }
        matching.push_back(path_in_base(list));
    }
    return all;
}

static void write_matches(const found &all, const std::string &value, std::ostream &out) {
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

static void write_matches_json(const found &all, std::ostream &out) {
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
    const found all = find_everywhere(arguments);
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

static std::string why_no_list(const list_edit_arguments &arguments) {
    const configuration_file *const file = catalogued(arguments.list);
    if (file ? has_lines(*file) : arguments.force) {
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
    if (const std::string why = why_no_list(arguments); !why.empty()) {
        throw failure(list_path(arguments) + ": " + why);
    }
    std::string problem = why_no_entry(arguments);
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
        .options = {{"DIR", &to->directory, "The folder of the lists"},
                    {"VALUE", &to->value,
                     "A mail address, or a client's address, as the engine gets it"},
                    {"--json", &to->json, "Write a JSON object"}},
        .footer = "Exit status 1 when nothing matches.",
        .run = [to] { return list_find(*to, std::cout); },
    };
}

static std::vector<option> edit_options(list_edit_arguments *to, option own) {
    return {{"DIR", &to->directory, "The folder of the lists"},
            {"LIST", &to->list, "The list's name, as in from_whitelist"},
            {"ENTRY", &to->entry, "The entry, written as it is in the list"},
            std::move(own)};
}

static command add_command() {
    auto to = std::make_shared<list_edit_arguments>();
    std::vector<option> options =
        edit_options(to.get(), {"--comment", &to->comment,
                                "Set the comment of an entry that is there, instead of adding it"});
    options.push_back({"--force", &to->force, "Also to a list that the engine does not read"});
    return {
        .name = "add",
        .description = "Add an entry to a list, which is made when missing",
        .options = std::move(options),
        .run = [to] { return list_add(*to, std::cout); },
    };
}

static command del_command() {
    auto to = std::make_shared<list_edit_arguments>();
    return {
        .name = "del",
        .description = "Remove an entry and its comment from a list",
        .options = edit_options(
            to.get(), {"--comment-only", &to->comment_only, "Remove only the entry's comment"}),
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
