// quillfence batch: many transactions, one line each.
#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>

#include "configured_engine.h"
#include "diff_entries.h"
#include "hits_output.h"
#include "loaded_configuration.h"
#include "pattern_line_files.h"
#include "platform/file.h"
#include "quillfence_program.h"
#include "stream_run.h"

namespace quillfence::programs {

namespace {

using decision::batch_form;
using decision::batch_options;
using decision::batch_result;

struct batch_arguments {
    stream_arguments stream;
    configuration_arguments configuration;

    bool full = false;
    bool line = false;
    bool tsv = false;
    bool report = false;
    bool hits = false;
    std::string hits_form;
    bool quiet = false;
};

} // namespace

// --- input and output ---------------------------------------------------------------------------

static batch_form form_of(const batch_arguments &arguments) {
    return arguments.full   ? batch_form::whole
           : arguments.line ? batch_form::line
           : arguments.tsv  ? batch_form::tsv
                            : batch_form::brief;
}

// --- the summary --------------------------------------------------------------------------------

static void add_counted(std::string &text, uint64_t count, const char *word) {
    if (count > 0) {
        text += (text.empty() ? "" : ", ") + std::to_string(count) + ' ' + word;
    }
}

static std::string verdicts_text(const decision::batch_sums &sums) {
    using decision::verdict;
    const auto count = [&sums](verdict is) { return sums.verdicts[static_cast<size_t>(is)]; };
    std::string text;
    add_counted(text, count(verdict::accept), "accepted");
    add_counted(text, count(verdict::reject), "rejected");
    add_counted(text, count(verdict::undecided), "undecided");
    return text.empty() ? "" : ": " + text;
}

static std::string missing_text(const decision::batch_sums &sums) {
    std::string text;
    for (const auto &[what, count] : sums.missing) {
        text += (text.empty() ? "missing: " : ", ") + what + " in " +
                (text.empty() ? counted(count, "transaction") : std::to_string(count));
    }
    return text;
}

static void summarise(const batch_result &result, const stream_answers &answers, double seconds) {
    const decision::batch_sums &sums = result.sums;
    char rate[64];
    std::snprintf(rate, sizeof rate, " (%.1f s, %.0f a second)", seconds,
                  static_cast<double>(sums.transactions) / std::max(seconds, 0.001));
    complain(counted(sums.transactions, "transaction") + verdicts_text(sums) + rate);
    if (sums.refused > 0) {
        complain(counted(sums.refused, "line") + " \"error\" in the place of a transaction's");
    }
    if (const std::string text = missing_text(sums); !text.empty()) {
        complain(text);
    }
    for (const std::string &remark : answers.remarks()) {
        complain(remark);
    }
}

// --- the entries' hits --------------------------------------------------------------------------

namespace {

// What is counted in place of lines, and of what.
class counted_entries {
  public:
    counted_entries(const batch_arguments &arguments, const file_substitute *substitutes)
        : entries_(control_entries(substitutes)), control_(entries_) {
        const std::vector<decision::config_entry> listed =
            listed_entries(arguments.configuration.user_dir, substitutes);
        entries_.insert(entries_.end(), listed.begin(), listed.end());
        hits_.control = &control_;
        hits_.note = [this](const std::vector<decision::entry_hit> &of) { tally_.add(of); };
    }
    counted_entries(const counted_entries &) = delete;
    counted_entries &operator=(const counted_entries &) = delete;

    void put_into(batch_options *options) const {
        options->hits = &hits_;
        options->write = write_aside;
    }
    std::string text(hits_form form) const {
        return hits_text(tally_.rows(entries_), form);
    }

  private:
    std::vector<decision::config_entry> entries_;
    const decision::control_lines control_;
    decision::hit_tally tally_;
    decision::batch_hits hits_;
};

} // namespace

static hits_form hits_form_of(const batch_arguments &arguments) {
    if (arguments.hits_form.empty()) {
        return platform::stream_is_terminal(stdout) ? hits_form::table : hits_form::json;
    }
    return arguments.hits_form == "table" ? hits_form::table
           : arguments.hits_form == "tsv" ? hits_form::tsv
                                          : hits_form::json;
}

// --- the run ------------------------------------------------------------------------------------

static batch_options options_of(const batch_arguments &arguments) {
    batch_options options = options_of(arguments.stream);
    options.form = form_of(arguments);
    options.report = arguments.report;
    options.user_dir = arguments.configuration.user_dir;
    return options;
}

static exit_status status_of(const batch_result &result) {
    check_run(result);
    if (result.write_error) {
        return exit_status::failed;
    }
    if (result.interrupted) {
        complain("interrupted");
    }
    return result.interrupted || result.sums.refused > 0 ? exit_status::partly : exit_status::done;
}

static exit_status batch(const batch_arguments &arguments) {
    batch_options options = options_of(arguments);
    const std::optional<uint64_t> total = check_inputs(options.inputs);
    configured_engine engine(arguments.configuration);
    stream_answers answers(arguments.stream);
    answers.put_into(arguments.stream, &options);
    options.substitutes = engine.substitutes();
    loaded_configuration loaded;
    std::optional<decision::pattern_line_files> pattern_lines;
    if (!options.substitutes) { // whose lists are not what was loaded
        loaded = load_configuration(options.user_dir);
        options.configuration = loaded.get();
        options.pattern_lines = &pattern_lines.emplace(*loaded);
    }
    std::optional<counted_entries> counted;
    if (arguments.hits) {
        counted.emplace(arguments, options.substitutes).put_into(&options);
    }
    const interruptible until_wanted;
    const auto begin = std::chrono::steady_clock::now();
    batch_result result = run_with_bar(options, total);
    if (counted && !result.write_error) {
        result.write_error = write_out(counted->text(hits_form_of(arguments)));
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    if (!arguments.quiet && !is_gone(result.write_error)) {
        summarise(result, answers, took.count());
    }
    return status_of(result);
}

// --- the command line ---------------------------------------------------------------------------

static option_group output_options(batch_arguments *to) {
    return {
        "The lines",
        {{"--full", &to->full, "Whole decision records in place of short ones"},
         {"--line", &to->line, "The line that the replayer prints", {.excludes = {"--full"}}},
         {"--tsv",
          &to->tsv,
          "Columns with tabs between them, their names in front",
          {.excludes = {"--full", "--line"}}},
         {"--report", &to->report, "The replayer's two lists as well"},
         {"--hits",
          &to->hits,
          "In place of lines: how many transactions each entry of the configuration matched and "
          "decided, and how many nothing else would have decided so",
          {.excludes = {"--full", "--line", "--tsv", "--report"}}},
         {"--hits-form",
          &to->hits_form,
          "How: a table (on a terminal), tsv, or json, an object a line",
          {.value = "FORM", .check = one_of({"table", "tsv", "json"}), .needs = {"--hits"}}},
         {"--quiet", &to->quiet, "No summary on standard error"}},
    };
}

command batch_command() {
    auto to = std::make_shared<batch_arguments>();
    return {
        .name = "batch",
        .description = "Judge many transactions: one in, one line out, in their order",
        .options = {input_files(&to->stream)},
        .groups = {input_options(&to->stream), configuration_options(&to->configuration),
                   dns_options(&to->stream), output_options(to.get())},
        .footer =
            R"(Without --full, --line or --tsv each line is a decision record in its short
form. In the place of what is no transaction stands {"error":"...","line":7}.

Exit status:
  0  every transaction was judged
  2  could not run to the end: what can't be read or written is named
  3  done, but for lines "error", or interrupted by Ctrl-C: what was done by
     then is there, in order)",
        .run = [to] { return batch(*to); },
    };
}

} // namespace quillfence::programs
