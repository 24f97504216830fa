// quillfence diff: the same transactions under two configurations; what is decided otherwise, and
// which entry is behind it.
#include <memory>
#include <optional>

#include "change_tally.h"
#include "configured_engine.h"
#include "diff_entries.h"
#include "diff_summary.h"
#include "file_output.h"
#include "loaded_configuration.h"
#include "pattern_line_files.h"
#include "platform/file.h"
#include "quillfence_program.h"
#include "stream_run.h"

namespace quillfence::programs {

namespace {

using decision::batch_comparison;
using decision::batch_options;
using decision::batch_result;
using decision::change_tally;
using decision::config_entry;
using decision::control_lines;

struct diff_arguments {
    stream_arguments stream;
    configuration_arguments configuration; // of a what-if; also registry and user_dir
    std::string before;                    // folders as --drive-c
    std::string after;

    bool json = false;
    bool summary = false;
    bool entries = false;
    std::string html;
};

// A configuration that was read: what judges, and what it holds.
struct loaded_side {
    loaded_configuration files;
    std::optional<decision::pattern_line_files> pattern_lines;
    std::vector<config_entry> entries;
    control_lines control;
};

// Both sides; the engine runs on the one after.
struct two_sides {
    loaded_side before;
    loaded_side after; // without files of its own in a what-if
    std::unique_ptr<configured_engine> engine;
};

} // namespace

// --- the two configurations ---------------------------------------------------------------------

static bool is_what_if(const diff_arguments &arguments) {
    return !arguments.configuration.with_list.empty() ||
           !arguments.configuration.without_list.empty();
}

static void check_sides(const diff_arguments &arguments) {
    const bool folders = !arguments.before.empty() && !arguments.after.empty();
    const bool one_folder = arguments.before.empty() != arguments.after.empty();
    if (one_folder || folders == is_what_if(arguments) ||
        (folders && !arguments.configuration.drive_c.empty())) {
        throw failure("name two configurations with --before and --after, or change one with "
                      "--with-list and --without-list (and --drive-c)");
    }
}

static void check_page(const diff_arguments &arguments) {
    std::vector<std::string> read = arguments.stream.inputs;
    read.push_back(arguments.stream.dns);
    read.push_back(arguments.configuration.registry);
    refuse_overwriting(read, {arguments.html});
}

// Before c: is another.
static void require_folders(const diff_arguments &arguments) {
    if (!is_what_if(arguments)) {
        require_directory(arguments.before, "--before is a folder that holds quillfence/");
        require_directory(arguments.after, "--after is a folder that holds quillfence/");
    }
}

static configuration_arguments in_folder(const diff_arguments &arguments,
                                         const std::string &folder) {
    configuration_arguments made = arguments.configuration;
    made.drive_c = folder;
    return made;
}

// Of the engine that runs now.
static loaded_side load_side(const std::string &user_dir, const file_substitute *substitutes) {
    loaded_side made;
    made.files = load_configuration(user_dir);
    made.pattern_lines.emplace(*made.files);
    made.entries = listed_entries(user_dir, substitutes);
    made.control = control_lines(control_entries(substitutes));
    return made;
}

// One after the other, as there is one drive c: at a time.
static two_sides load_folders(const diff_arguments &arguments) {
    const std::string &user_dir = arguments.configuration.user_dir;
    two_sides made;
    {
        const configured_engine engine(in_folder(arguments, arguments.before));
        made.before = load_side(user_dir, nullptr);
    }
    made.engine = std::make_unique<configured_engine>(in_folder(arguments, arguments.after));
    made.after = load_side(user_dir, nullptr);
    return made;
}

static two_sides load_what_if(const diff_arguments &arguments) {
    const std::string &user_dir = arguments.configuration.user_dir;
    two_sides made;
    made.engine = std::make_unique<configured_engine>(arguments.configuration);
    made.before = load_side(user_dir, nullptr);
    return made;
}

static compared_names names_of(const diff_arguments &arguments, const two_sides &sides) {
    if (!is_what_if(arguments)) {
        return {arguments.before, arguments.after, {}};
    }
    const std::string &folder = arguments.configuration.drive_c;
    return {folder.empty() ? "this system's configuration" : folder, "the same, changed",
            sides.engine->changes()};
}

// Of a what-if the lists that are other ones are read from their copies, and all else is what was
// loaded.
static void put_into(const diff_arguments &arguments, two_sides &sides, batch_options *options,
                     batch_comparison *with) {
    options->user_dir = arguments.configuration.user_dir;
    options->configuration = sides.before.files.get();
    options->pattern_lines = &*sides.before.pattern_lines;
    if (is_what_if(arguments)) {
        with->configuration = options->configuration;
        with->pattern_lines = options->pattern_lines;
        with->substitutes = sides.engine->substitutes();
        sides.after.entries = listed_entries(arguments.configuration.user_dir, with->substitutes);
        sides.after.control = control_lines(control_entries(with->substitutes));
    } else {
        with->configuration = sides.after.files.get();
        with->pattern_lines = &*sides.after.pattern_lines;
        with->drive_c_before = arguments.before;
    }
    with->control = {&sides.before.control, &sides.after.control};
    options->compared = with;
}

// --- the run ------------------------------------------------------------------------------------

namespace {

// What a run has come to, when its engine has gone.
struct diff_result {
    batch_result run;
    uint64_t changes = 0;
    run_summary summary;
};

} // namespace

static bool wants_summary(const diff_arguments &arguments) {
    return arguments.summary || (!arguments.json && platform::stream_is_terminal(stdout));
}

static void complain_of(const stream_answers &answers) {
    for (const std::string &remark : answers.remarks()) {
        complain(remark);
    }
}

static diff_result run_diff(const diff_arguments &arguments) {
    constexpr size_t most_unhit = 50;
    batch_options options = options_of(arguments.stream);
    const std::optional<uint64_t> total = check_inputs(options.inputs);
    two_sides sides = is_what_if(arguments) ? load_what_if(arguments) : load_folders(arguments);
    stream_answers answers(arguments.stream);
    answers.put_into(arguments.stream, &options);
    change_tally tally;
    batch_comparison with;
    with.lines = !wants_summary(arguments);
    with.other_entries = arguments.entries;
    with.note = [&tally](const decision::decision_change &one) { tally.add(one); };
    put_into(arguments, sides, &options, &with);
    if (!with.lines) {
        options.write = write_aside;
    }
    const interruptible until_wanted;
    diff_result made{run_with_bar(options, total), 0, {}};
    made.changes = tally.changes() + (arguments.entries ? tally.other_entries() : 0);
    complain_of(answers);
    made.summary =
        summarise_diff(names_of(arguments, sides), tally, made.run,
                       find_unhit(sides.before.entries, sides.after.entries, tally, most_unhit));
    return made;
}

static void write_summary(const diff_arguments &arguments, const diff_result &result,
                          file_output *page) {
    if (wants_summary(arguments)) {
        if (const uint32_t error = write_out(summary_text(result.summary));
            error && !is_gone(error)) {
            throw failure(file_error("standard output", error));
        }
    }
    if (page) {
        const std::string html = diff_html(result.summary);
        page->write(html.data(), html.size());
        page->commit();
    }
}

static exit_status status_of(const diff_result &result) {
    if (result.run.write_error || result.run.interrupted || result.run.sums.refused > 0) {
        return exit_status::failed;
    }
    return result.changes > 0 ? exit_status::no : exit_status::done;
}

// The page is opened first, since its name is not one of the server's.
static exit_status diff(const diff_arguments &arguments) {
    check_sides(arguments);
    require_folders(arguments);
    check_page(arguments);
    std::optional<file_output> page;
    if (!arguments.html.empty()) {
        page.emplace(arguments.html, platform::file_rights::of_owner);
    }
    const diff_result result = run_diff(arguments);
    check_run(result.run);
    if (result.run.interrupted) {
        complain("interrupted");
    }
    write_summary(arguments, result, page ? &*page : nullptr);
    return status_of(result);
}

// --- the command line ---------------------------------------------------------------------------

static option_group side_options(diff_arguments *to) {
    return {
        "The two configurations",
        {{"--before",
          &to->before,
          "The folder that holds the one quillfence/",
          {.value = "DIR", .check = not_empty(), .needs = {"--after"}}},
         {"--after",
          &to->after,
          "The folder that holds the other one",
          {.value = "DIR", .check = not_empty(), .needs = {"--before"}}}},
    };
}

static option_group output_options(diff_arguments *to) {
    return {
        "The output",
        {{"--json", &to->json, "A line for each change (unless it goes to a terminal)"},
         {"--summary",
          &to->summary,
          "Sums in place of the lines (on a terminal)",
          {.excludes = {"--json"}}},
         {"--entries", &to->entries,
          "What is decided the same way, but by another entry, is a change as well"},
         {"--html",
          &to->html,
          "Also write the sums as a page for a browser",
          {.value = "FILE", .check = not_empty()}}},
    };
}

command diff_command() {
    auto to = std::make_shared<diff_arguments>();
    return {
        .name = "diff",
        .description = "Compare two configurations: which decisions change, and by which entry",
        .options = {input_files(&to->stream)},
        .groups = {side_options(to.get()), configuration_options(&to->configuration),
                   input_options(&to->stream), dns_options(&to->stream), output_options(to.get())},
        .footer =
            R"(A change is another verdict, another "by" or another rule. Entries are told by
their text, not by their line.

Exit status:
  0  no change
  1  changes
  2  trouble: it could not run to the end, was interrupted, or an input is no
     transaction: {"error":"...","line":7} tells which (with the sums on
     standard error))",
        .run = [to] { return diff(*to); },
    };
}

} // namespace quillfence::programs
