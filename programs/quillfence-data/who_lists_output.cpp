// What who-lists prints.
#include <algorithm>
#include <array>
#include <iostream>
#include <iterator>
#include <memory>
#include <string_view>

#include "command_line.h"
#include "configuration.h"
#include "json_writer.h"
#include "quillfence.h"
#include "surroundings.h"
#include "text.h"
#include "who_lists.h"

namespace quillfence::data_tool {

using decision::json_layout;
using decision::json_writer;

// --- words ---

static constexpr char drive_and_folder[] = "c:/quillfence/";

// The place below the base folder; a file elsewhere is named whole.
static std::string short_name(const std::string &file) {
    return file.starts_with(drive_and_folder) ? file.substr(sizeof drive_and_folder - 1) : file;
}

static std::string place_text(const found_entry &entry) {
    std::string text = entry.file.empty() ? "(built in)" : short_name(entry.file);
    if (!entry.file.empty() && entry.number) {
        text += entry.unit == "line" ? ":" + std::to_string(entry.number)
                                     : " " + entry.unit + " " + std::to_string(entry.number);
    }
    return entry.source.empty() ? text : text + " (" + entry.source + ")";
}

static std::string entry_text(const found_entry &entry) {
    return entry.text + (entry.comment.empty() ? "" : "  " + entry.comment);
}

static std::string effect_text(const listing &one) {
    const std::string &rule = one.entry.rule;
    switch (one.does) {
    case entry_effect::accepts:
        return "accepted by " + rule;
    case entry_effect::refuses:
        return (one.enabled ? "refused by " : "not enabled: ") + rule;
    case entry_effect::spares:
        return "spared by PTR rules";
    case entry_effect::declares:
        return (one.enabled ? "from these networks only: " : "not enabled: ") + rule;
    case entry_effect::nothing:
        break;
    }
    return "no rule asks";
}

static const char *effect_name(entry_effect effect) {
    static constexpr const char *names[] = {"accepts", "refuses", "spares", "declares", "nothing"};
    return names[static_cast<int>(effect)];
}

static const char *kind_name(value_kind kind) {
    static constexpr const char *names[] = {"address", "name", "client"};
    return names[static_cast<int>(kind)];
}

static const char *verdict_name(const met_value &met) {
    return !met.rule.empty() ? (met.accepted ? "accepted" : "refused")
           : met.spared      ? "spared"
                             : "none";
}

static std::string verdict_text(const met_value &met) {
    if (!met.rule.empty()) {
        return std::string(verdict_name(met)) + " by " + met.rule;
    }
    return met.spared             ? "spared by dynaregex/exempt.cregexes"
           : met.listings.empty() ? "not listed"
                                  : "nothing here decides";
}

// --- the table ---

// A column: where it begins, and how wide it is. Behind the last there is nothing.
struct table_column {
    size_t begin;
    size_t width;
};
static constexpr table_column columns[] = {{2, 26}, {30, 22}, {54, 26}};
static constexpr size_t column_count = std::size(columns);

// How much of a text goes on a line of this width: up to a blank if there is one, else up to a mark
// within a long name.
static size_t line_end(std::string_view text, size_t width) {
    if (text.size() <= width) {
        return text.size();
    }
    const size_t blank = text.substr(0, width + 1).rfind(' ');
    if (blank != std::string_view::npos && blank > 0) {
        return blank;
    }
    const size_t mark = text.substr(0, width).find_last_of("/_-.,:|");
    return mark == std::string_view::npos ? width : mark + 1;
}

static std::string_view take_line(std::string_view *text, size_t width) {
    const std::string_view line = text->substr(0, line_end(*text, width));
    text->remove_prefix(line.size());
    text->remove_prefix(std::min(text->find_first_not_of(' '), text->size()));
    return line;
}

// Cells that are too wide go on in the lines below.
static void write_row(const std::array<std::string, column_count> &cells, bool marked,
                      std::ostream &out) {
    std::array<std::string_view, column_count> left;
    std::copy(cells.begin(), cells.end(), left.begin());
    bool first = true;
    while (first || std::any_of(left.begin(), left.end(),
                                [](std::string_view cell) { return !cell.empty(); })) {
        std::string line = first && marked ? "*" : "";
        for (size_t i = 0; i < column_count; ++i) {
            line.resize(std::max(line.size(), columns[i].begin), ' ');
            line += take_line(&left[i], columns[i].width);
        }
        out << line.substr(0, line.find_last_not_of(' ') + 1) << '\n';
        first = false;
    }
}

void write_listings(const lists_answer &answer, std::ostream &out) {
    bool any_decides = false;
    for (const met_value &met : answer.met) {
        out << printable(answer.value) << " as " << met.as << ": " << verdict_text(met) << '\n';
        for (const listing &one : met.listings) {
            write_row({printable(place_text(one.entry)), printable(entry_text(one.entry)),
                       effect_text(one)},
                      one.decides, out);
            any_decides = any_decides || one.decides;
        }
    }
    if (any_decides) {
        out << "* decides\n";
    }
    if (!answer.engine_is_on) {
        out << "control/enabled switches the engine off: nothing of this is asked\n";
    }
}

// --- JSON ---

static void text_member(json_writer *json, const char *name, const std::string &text) {
    if (!text.empty()) {
        json->name(name);
        json->text(text);
    }
}

static void flag_member(json_writer *json, const char *name, bool value) {
    json->name(name);
    json->boolean(value);
}

static void write_listing(json_writer *json, const listing &one) {
    json->begin_object();
    text_member(json, "file", one.entry.file);
    if (one.entry.number) {
        json->name(one.entry.unit);
        json->number(uint64_t{one.entry.number});
    }
    json->name("entry");
    json->text(one.entry.text);
    text_member(json, "comment", one.entry.comment);
    text_member(json, "how", one.entry.how);
    text_member(json, "source", one.entry.source);
    text_member(json, "rule", one.entry.rule);
    text_member(json, "does", effect_name(one.does));
    flag_member(json, "enabled", one.enabled);
    flag_member(json, "decides", one.decides);
    json->end_object();
}

static void write_met(json_writer *json, const met_value &met) {
    json->begin_object();
    text_member(json, "as", met.as);
    text_member(json, "verdict", verdict_name(met));
    text_member(json, "rule", met.rule);
    json->name("listings");
    json->begin_array();
    for (const listing &one : met.listings) {
        write_listing(json, one);
    }
    json->end_array();
    json->end_object();
}

static void write_problem(json_writer *json, const look_problem &one) {
    json->begin_object();
    text_member(json, "file", one.file);
    text_member(json, "reason", one.reason);
    json->end_object();
}

void write_listings_json(const lists_answer &answer, std::ostream &out) {
    std::string text;
    json_writer json(text, json_layout::one_line);
    json.begin_object();
    text_member(&json, "value", answer.value);
    text_member(&json, "kind", kind_name(answer.kind));
    flag_member(&json, "engine_is_on", answer.engine_is_on);
    json.name("met");
    json.begin_array();
    for (const met_value &met : answer.met) {
        write_met(&json, met);
    }
    json.end_array();
    json.name("problems");
    json.begin_array();
    for (const look_problem &one : answer.problems) {
        write_problem(&json, one);
    }
    json.end_array();
    json.end_object();
    json.finish();
    out << text << '\n';
}

// --- the command ---

namespace {

// The engine's rule table, as long as it lives.
struct engine_run {
    engine_run() {
        if (!quillfence_init()) {
            throw failure("the engine can't be started");
        }
    }
    ~engine_run() {
        quillfence_teardown();
    }
    engine_run(const engine_run &) = delete;
    engine_run &operator=(const engine_run &) = delete;
};

} // namespace

exit_status who_lists(const who_lists_arguments &arguments, std::ostream &out) {
    const surroundings chosen(arguments.drive_c, arguments.registry);
    require_directory(quillfence_base_dir,
                      "name the folder that holds the server's quillfence/ with --drive-c");
    if (!arguments.user_dir.empty()) {
        require_directory(arguments.user_dir, "--user-dir is a user's own folder of lists");
    }
    const engine_run engine;
    const lists_answer answer =
        ask_all_lists(arguments.value, arguments.recipient, arguments.user_dir);
    if (arguments.json) {
        write_listings_json(answer, out);
    } else {
        write_listings(answer, out);
    }
    for (const look_problem &one : answer.problems) {
        complain(one.reason.starts_with(one.file) ? one.reason : one.file + ": " + one.reason);
    }
    if (!answer.problems.empty()) {
        return exit_status::failed;
    }
    const bool any = std::any_of(answer.met.begin(), answer.met.end(),
                                 [](const met_value &met) { return !met.listings.empty(); });
    return any ? exit_status::done : exit_status::no;
}

command who_lists_command() {
    auto to = std::make_shared<who_lists_arguments>();
    return {
        .name = "who-lists",
        .description = "Tell what the configuration says about an address, a name or a client",
        .options = {{"VALUE", &to->value,
                     "A mail address, a host name, or a client's IPv4 or IPv6 address"},
                    {"--recipient",
                     &to->recipient,
                     "Of mail from the address: ask this mailbox's own whitelist, too",
                     {.value = "ADDRESS"}},
                    {"--user-dir",
                     &to->user_dir,
                     "The recipient's own folder of lists: ask these, too",
                     {.value = "DIR", .check = not_empty()}},
                    {"--drive-c",
                     &to->drive_c,
                     "The folder that holds the server's quillfence/, or a copy of it",
                     {.value = "DIR", .check = not_empty()}},
                    {"--registry",
                     &to->registry,
                     "An export of the server's registry (.reg)",
                     {.value = "FILE", .check = not_empty()}},
                    {"--json", &to->json, "Write a JSON object"}},
        .footer = R"(Exit status:
  0  something lists the value
  1  nothing does
  2  the value is none of these, or a file could not be read: it is named, and the
     others are told)",
        .run = [to] { return who_lists(*to, std::cout); },
    };
}

} // namespace quillfence::data_tool
