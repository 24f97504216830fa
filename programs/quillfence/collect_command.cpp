// quillfence collect: a server's configuration in one file, for a desk elsewhere.
#include <cstdio>
#include <memory>
#include <optional>

#include "collection.h"
#include "command_line.h"
#include "file_output.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/process.h"
#include "quillfence_program.h"
#include "surroundings.h"
#include "text.h"
#include "utc_text.h"

namespace quillfence::programs {

namespace {

struct collect_arguments {
    std::string out;
    std::string base; // "" for the engine's own
    std::string drive_c;
    std::string registry;
    std::vector<std::string> user_dirs;
    bool with_log = false;
    std::string base_given; // for people
};

} // namespace

// --- what is collected --------------------------------------------------------------------------

// A copy of a drive is looked up as the server's own drive is: whatever the letter case.
static void settle_base(collect_arguments *arguments) {
    const std::string base = arguments->base;
    arguments->base_given = base.empty() ? "c:/quillfence" : base;
    const data_files::path_parts parts =
        data_files::parts_of(base.ends_with('/') ? base.substr(0, base.size() - 1) : base);
    if (base.empty()) {
        arguments->base = "c:/quillfence";
    } else if (arguments->drive_c.empty() && !decision::archive_name(base).starts_with("c/") &&
               parts.name == "quillfence") {
        arguments->drive_c = parts.directory;
        arguments->base = "c:/quillfence";
    }
}

static std::string time_now() {
    platform::time_of_day now;
    return platform::clock_now(&now) ? decision::utc_text(now.seconds, now.microseconds / 1000)
                                     : "";
}

static std::string registry_origin(const collect_arguments &arguments) {
    char named[4096];
    const std::string chosen = arguments.registry;
    if (!chosen.empty()) {
        return chosen;
    }
    const uint32_t length =
        platform::environment_variable("QUILLFENCE_REGISTRY", named, sizeof named);
    return length && length < sizeof named ? named : "system";
}

// Whether it is another server's: then this one's registry and hosts file are none of its.
static bool is_copy(const collect_arguments &arguments) {
    return !arguments.drive_c.empty() || !decision::archive_name(arguments.base).starts_with("c/");
}

static collection collected(const collect_arguments &arguments) {
    const bool copy = is_copy(arguments);
    const bool registry = !copy || !arguments.registry.empty();
    collection all;
    all.base = arguments.base_given;
    all.tree = collect_tree({.base = arguments.base,
                             .user_dirs = arguments.user_dirs,
                             .with_log = arguments.with_log,
                             .hosts = !copy,
                             .registry = registry});
    if (registry) {
        all.registry = collect_registry();
        all.registry_from = registry_origin(arguments);
    } else {
        all.tree.left_out.push_back(
            {"registry", "this machine's, not that of the copied server; --registry names one"});
    }
    if (copy) {
        all.tree.left_out.push_back(
            {"hosts file", "this machine's, not that of the copied server"});
    }
    all.verified = verification::verify_tree(arguments.base);
    all.time = time_now();
    return all;
}

// --- the file -----------------------------------------------------------------------------------

static void begin_again(file_output *out) {
    std::rewind(out->stream());
    if (platform::stream_truncate(out->stream(), 0)) {
        out->fail("its beginning can't be cut off");
    }
}

// When a file is changed while it is collected, everything is looked at once more.
static collection write_all(const collect_arguments &arguments, file_output *out) {
    static constexpr int most_tries = 3;
    std::string changed;
    for (int i = 0; i < most_tries; ++i) {
        collection all = collected(arguments);
        for (const collected_file &file : all.tree.files) {
            refuse_same_file(file.path, arguments.out);
        }
        changed = write_collection(out->stream(), arguments.out, all);
        if (changed.empty()) {
            return all;
        }
        begin_again(out);
    }
    throw failure(changed + ": changes again and again while it is collected; try once more when "
                            "nobody edits it");
}

// An archive of nothing would look as if the server had no configuration.
static void refuse_nothing(const collection &all) {
    if (all.tree.files.empty() && all.tree.failures.empty() && !all.registry.values) {
        throw failure(all.base + ": holds no file that the engine knows; BASEDIR is the folder "
                                 "quillfence itself, --drive-c the folder that holds it");
    }
}

// --- what is said about it ----------------------------------------------------------------------

static void say(const std::string &text) {
    std::printf("%s\n", text.c_str());
}

static void say_left_out(const collected_tree &tree) {
    for (const named_reason &left : tree.left_out) {
        say("left out: " + data_files::printable(left.name) + ": " + left.why);
    }
    static constexpr size_t most = 5;
    std::string names;
    for (size_t i = 0; i < tree.unknown_names.size() && i < most; ++i) {
        names += (i ? ", " : "") + data_files::printable(tree.unknown_names[i]);
    }
    if (tree.unknown) {
        say("left out: " + counted(tree.unknown, "file") +
            " that the engine does not know: " + names + (tree.unknown > most ? ", ..." : ""));
    }
}

static void say_contents(const std::string &path, const collection &all) {
    uint64_t bytes = 0;
    for (const collected_file &file : all.tree.files) {
        bytes += file.size;
    }
    say(path + ": " + counted(all.tree.files.size(), "file") + ", " + counted(bytes, "byte") +
        (all.registry.values ? ", " + counted(all.registry.values, "registry value") : ""));
    for (const collected_file &file : all.tree.files) {
        if (!file.link.empty()) {
            say("a link: " + data_files::printable(file.name) + " -> " +
                data_files::printable(file.link));
        }
    }
    say_left_out(all.tree);
    using verification::severity;
    say("verify: " + counted(count_of(all.verified, severity::error), "error") + ", " +
        counted(count_of(all.verified, severity::warning), "warning"));
    say("The lists hold mail addresses: the file is for those who may read them.");
}

static exit_status complain_of_failures(const collection &all) {
    for (const named_reason &failed : all.tree.failures) {
        complain(failed.name + ": could not be collected: " + failed.why);
    }
    for (const std::string &failed : all.registry.failures) {
        complain(failed);
    }
    const bool whole = all.tree.failures.empty() && all.registry.failures.empty();
    return whole ? exit_status::done : exit_status::partly;
}

static exit_status collect(collect_arguments arguments) {
    settle_base(&arguments);
    file_output out(arguments.out, platform::file_rights::of_owner);
    std::optional<surroundings> chosen(std::in_place, arguments.drive_c, arguments.registry);
    const collection all = write_all(arguments, &out);
    chosen.reset();
    refuse_nothing(all);
    out.commit();
    say_contents(arguments.out, all);
    return complain_of_failures(all);
}

// --- the command line ---------------------------------------------------------------------------

command collect_command() {
    auto to = std::make_shared<collect_arguments>();
    return {
        .name = "collect",
        .description = "Put a server's configuration into one file, for a desk elsewhere",
        .options = {{"OUT",
                     &to->out,
                     "The tar file that is written, for its owner alone",
                     {.check = not_empty()}},
                    {"BASEDIR",
                     &to->base,
                     "The server's c:/quillfence, or a copy of it (c:/quillfence)",
                     {.required = false, .check = not_empty()}},
                    {"--with-log", &to->with_log, "Also the mail log"},
                    {"--user-dir",
                     &to->user_dirs,
                     "Also the lists in a user's own folder; may be repeated",
                     {.value = "DIR", .check = not_empty(), .values_at_once = 1}},
                    {"--drive-c",
                     &to->drive_c,
                     "The folder that holds the server's quillfence/, or a copy of it",
                     {.value = "DIR", .check = not_empty()}},
                    {"--registry",
                     &to->registry,
                     "An export of the server's registry (.reg)",
                     {.value = "FILE", .check = not_empty()}}},
        .footer = R"(Unpacked, the folder c in it is a --drive-c, and registry.reg a --registry.
manifest.json tells what is inside, what is missing and what was left out.
Exit status 3 when something could not be read; the rest is there.)",
        .run = [to] { return collect(*to); },
    };
}

} // namespace quillfence::programs
