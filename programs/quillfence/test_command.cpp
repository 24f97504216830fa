// quillfence test: cases, each judged once more and held against what it expects.
#include <cstdio>
#include <optional>

#include "case_check.h"
#include "case_files.h"
#include "command_line.h"
#include "engine_messages.h"
#include "file_output.h"
#include "junit_report.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "progress.h"
#include "quillfence_program.h"
#include "started_engine.h"
#include "surroundings.h"
#include "tap_report.h"
#include "utc_text.h"

namespace quillfence::programs {

namespace {

struct test_arguments {
    std::vector<std::string> paths;
    std::string drive_c;
    std::string registry;
    std::string user_dir;
    std::string dns = "recorded";
    std::string junit;
    bool update = false;
};

struct dns_word {
    const char *word;
    decision::case_dns is;
};
constexpr dns_word dns_words[] = {
    {"recorded", decision::case_dns::recorded},
    {"record-missing", decision::case_dns::record_missing},
    {"live", decision::case_dns::live},
};

} // namespace

// --- the reports ---

// Each piece at once, for whoever reads along.
static void print(const std::string &text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (std::fflush(stdout) != 0) {
        throw failure("standard output could not be written");
    }
}

static void complain_about(const case_result &result) {
    if (result.is == case_outcome::not_run) {
        complain(result.path + (result.line ? ':' + std::to_string(result.line) : "") + ": " +
                 result.problem);
    }
}

static std::string time_now() {
    platform::time_of_day now;
    return decision::utc_text(platform::clock_now(&now) ? now.seconds : 0);
}

// --- the run ---

static check_options options_of(const test_arguments &arguments) {
    check_options options = {.drive_c = arguments.drive_c,
                             .registry = arguments.registry,
                             .user_dir = arguments.user_dir};
    for (const dns_word &row : dns_words) {
        options.dns = row.word == arguments.dns ? row.is : options.dns;
    }
    if (arguments.update) {
        options.update = [](const case_result &result) { print(tap_update(result)); };
    }
    return options;
}

// A wrong option is said once, and not for each case.
static void check_surroundings(const test_arguments &arguments) {
    const surroundings chosen(arguments.drive_c, arguments.registry);
}

static std::vector<case_result> results_of(const std::vector<case_file> &files,
                                           const check_options &options) {
    std::vector<case_result> results;
    progress bar("cases", platform::stream_is_terminal(stdout) ? 0 : files.size());
    for (const case_file &file : files) {
        bar.show(results.size());
        results.push_back(file.problem.empty()
                              ? check_case(file.path, options)
                              : case_result{.path = file.path, .problem = file.problem});
        if (results.back().is == case_outcome::not_run) {
            bar.wipe();
        }
        complain_about(results.back());
        print(tap_case(results.size(), results.back()));
    }
    return results;
}

static exit_status status_of(const case_counts &counts) {
    return counts.not_run           ? exit_status::failed
           : counts.not_as_expected ? exit_status::no
                                    : exit_status::done;
}

static void check_report(const test_arguments &arguments, const std::vector<case_file> &files) {
    refuse_same_file(arguments.registry, arguments.junit);
    for (const case_file &file : files) {
        refuse_same_file(file.path, arguments.junit);
    }
}

static exit_status test(const test_arguments &arguments) {
    const std::string begin = time_now();
    const std::vector<case_file> files = case_files_of(arguments.paths);
    check_report(arguments, files);
    std::optional<file_output> junit;
    if (!arguments.junit.empty()) {
        junit.emplace(arguments.junit);
    }
    check_surroundings(arguments);
    const started_engine engine;
    data_files::engine_messages::require_memory(); // else the engine's tables lack something
    vc_set_log_function(nullptr);                  // what it logs stands in the records
    print(tap_plan(files.size()));
    const std::vector<case_result> results = results_of(files, options_of(arguments));
    vc_set_log_function(log_to_standard_error);
    print(tap_end(count_of(results)));
    if (junit) {
        const std::string report = junit_report(results, begin);
        junit->write(report.data(), report.size());
        junit->commit();
    }
    return status_of(count_of(results));
}

// --- the command line ---

command test_command() {
    auto to = std::make_shared<test_arguments>();
    return {
        .name = "test",
        .description = "Judge cases once more and compare with what they expect",
        .options =
            {{"PATH",
              &to->paths,
              "Cases, bundles, and folders, in which every *.json and *.tar is one",
              {.check = not_empty()}},
             {"--drive-c",
              &to->drive_c,
              "The folder that holds the server's quillfence/, or a copy of it",
              {.value = "DIR", .check = not_empty()}},
             {"--registry",
              &to->registry,
              "An export of the server's registry (.reg), for cases that hold none of it",
              {.value = "FILE", .check = not_empty()}},
             {"--user-dir",
              &to->user_dir,
              "The recipient's own folder of lists, for short cases that name none",
              {.value = "DIR", .check = not_empty()}},
             {"--dns",
              &to->dns,
              "recorded asks nobody, record-missing what a case does not know, live everything "
              "(recorded)",
              {.value = "recorded|record-missing|live",
               .check = one_of({"recorded", "record-missing", "live"})}},
             {"--junit",
              &to->junit,
              "Also write a JUnit report to this file",
              {.value = "FILE", .check = not_empty()}},
             {"--update", &to->update,
              "Write what came into \"expect\" of the cases that expect something else, or "
              "nothing"}},
        .footer =
            R"(Standard output has a line a case (TAP, version 13), and behind one that failed
what was expected, what came, and the entry that decided.

Exit status:
  0  all cases are as expected
  1  some are not
  2  a case could not be run, or there was none)",
        .run = [to] { return test(*to); },
    };
}

} // namespace quillfence::programs
