// quillfence batch: many transactions, one line each.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <thread>

#include "answers.h"
#include "answers_file.h"
#include "batch.h"
#include "command_line.h"
#include "configured_engine.h"
#include "engine_messages.h"
#include "loaded_configuration.h"
#include "open_file.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "platform/interruption.h"
#include "quillfence_program.h"
#include "rate_bar.h"
#include "text.h"
#include "trouble_source.h"
#include "vc_w32.h"

namespace quillfence::programs {

namespace {

using decision::batch_form;
using decision::batch_options;
using decision::batch_result;

struct batch_arguments {
    std::vector<std::string> inputs; // none: standard input
    std::string from;
    uint64_t jobs = 0; // 0: the processors
    configuration_arguments configuration;

    std::string dns = "recorded"; // or "off", "live", a file
    std::string server;
    double deadline = 10;
    uint64_t questions = 64;
    bool guards = false;

    bool full = false;
    bool line = false;
    bool tsv = false;
    bool report = false;
    bool quiet = false;
};

// Where a run's DNS answers come from.
class batch_answers {
  public:
    // Throws a failure. The engine's names of files must be in place.
    explicit batch_answers(const batch_arguments &arguments) {
        if (arguments.dns == "live") {
            open_live(arguments);
        } else if (arguments.dns != "recorded" && arguments.dns != "off") {
            if (const auto why = file_.load(arguments.dns)) {
                throw failure("--dns: " + *why);
            }
        }
    }

    void put_into(const batch_arguments &arguments, batch_options *options) {
        options->live = memo_.get();
        options->no_answers = arguments.dns == "off";
        if (!memo_ && arguments.dns != "recorded" && arguments.dns != "off") {
            options->recorded = &file_.recorded();
            options->otherwise = file_.zone();
        }
    }

    // What was wrong with the DNS, a sentence each.
    std::vector<std::string> remarks() const;

  private:
    void open_live(const batch_arguments &arguments) {
        live_ = live_dns(arguments.server);
        troubles_ = std::make_unique<dns_sources::trouble_source>(*live_);
        dns_sources::source *next = troubles_.get();
        if (arguments.guards) {
            guard_ = std::make_unique<dns_sources::guard_source>(*next, block_list_zones());
            next = guard_.get();
        }
        memo_ = std::make_unique<dns_sources::memo_source>(
            *next, dns_sources::memo_choice{.leaves_zones_alone = true});
    }

    decision::answers_file file_;
    std::unique_ptr<dns_sources::live_source> live_;
    std::unique_ptr<dns_sources::trouble_source> troubles_;
    std::unique_ptr<dns_sources::guard_source> guard_;
    std::unique_ptr<dns_sources::memo_source> memo_;
};

// While it lives the engine's lines go into the records alone, and lack of memory ends one
// transaction instead of the program.
class quiet_engine {
  public:
    quiet_engine() {
        data_files::engine_messages::require_memory();
        vc_set_log_function(nullptr);
        vc_set_oom_function(nullptr);
    }
    ~quiet_engine() {
        data_files::engine_messages::begin(log_to_standard_error);
    }
    quiet_engine(const quiet_engine &) = delete;
    quiet_engine &operator=(const quiet_engine &) = delete;
};

// While it lives Ctrl-C is a wish.
class interruptible {
  public:
    interruptible() {
        if (const uint32_t error = platform::interruption_listen()) {
            throw failure("Ctrl-C can't be waited for: " + data_files::system_text(error));
        }
    }
    ~interruptible() {
        platform::interruption_ignore();
    }
    interruptible(const interruptible &) = delete;
    interruptible &operator=(const interruptible &) = delete;
};

} // namespace

// --- input and output ---------------------------------------------------------------------------

static std::vector<std::string> inputs_of(const batch_arguments &arguments) {
    return arguments.inputs.empty() ? std::vector<std::string>{"-"} : arguments.inputs;
}

// Whether all of them can be opened, before the first is judged; *total receives their size,
// nothing when it is not known.
static void check_inputs(const std::vector<std::string> &inputs, std::optional<uint64_t> *total) {
    *total = 0;
    for (const std::string &path : inputs) {
        if (path == "-") {
            total->reset();
            continue;
        }
        data_files::open_file file;
        uint64_t size = 0;
        if (const uint32_t error = file.open(path)) {
            throw failure(file_error(path, error));
        }
        if (file.size(&size)) {
            total->reset();
        } else if (*total) {
            **total += size;
        }
    }
}

static std::optional<decision::input_format> format_of(const std::string &name) {
    if (name.empty()) {
        return std::nullopt;
    }
    const auto format = decision::input_format_of_name(name);
    if (!format) {
        throw failure("--from: there is no format " + data_files::quoted(name) +
                      "; they are json, policy, tsv, qflog, postfix and exim");
    }
    return format;
}

static uint32_t write_out(std::string_view lines) {
    const platform::file_handle out = platform::file_standard_output();
    while (!lines.empty()) {
        uint32_t put = 0;
        const auto size = static_cast<uint32_t>(std::min<size_t>(lines.size(), 1 << 20));
        if (const uint32_t error = platform::file_write(out, lines.data(), size, &put)) {
            return error;
        }
        lines.remove_prefix(put);
    }
    return 0;
}

static batch_form form_of(const batch_arguments &arguments) {
    return arguments.full   ? batch_form::whole
           : arguments.line ? batch_form::line
           : arguments.tsv  ? batch_form::tsv
                            : batch_form::brief;
}

// --- the summary --------------------------------------------------------------------------------

static std::string zone_remark(const std::string &zone, const dns_sources::zone_trouble &trouble,
                               bool left_alone) {
    std::string text = "DNS: " + (zone.empty() ? "other zones" : zone) + ": ";
    const struct {
        uint64_t count;
        const char *word;
    } counts[] = {{trouble.refused, "refused"},
                  {trouble.failed, "failed"},
                  {trouble.silent, "without an answer"}};
    const char *between = "";
    for (const auto &one : counts) {
        if (one.count > 0) {
            text += between + counted(one.count, "question") + ' ' + one.word;
            between = ", ";
        }
    }
    return text + (left_alone ? "; then it was left alone" : "");
}

// The zones with the most trouble.
std::vector<std::string> batch_answers::remarks() const {
    constexpr size_t most = 10;
    std::vector<std::string> all;
    if (!memo_) {
        return all;
    }
    const auto troubles = troubles_->troubles();
    const std::vector<std::string> alone = memo_->zones_left_alone();
    std::vector<std::pair<std::string, dns_sources::zone_trouble>> worst(troubles.begin(),
                                                                         troubles.end());
    std::stable_sort(worst.begin(), worst.end(), [](const auto &one, const auto &other) {
        return one.second.all() > other.second.all();
    });
    for (size_t i = 0; i < std::min(most, worst.size()); ++i) {
        const bool left = std::binary_search(alone.begin(), alone.end(), worst[i].first);
        all.push_back(zone_remark(worst[i].first, worst[i].second, left));
    }
    if (worst.size() > most) {
        all.push_back("DNS: trouble with " + counted(worst.size() - most, "zone") + " more");
    }
    if (guard_ && guard_->no_listings() + guard_->refusals() > 0) {
        all.push_back("DNS: the guards took " +
                      counted(guard_->no_listings() + guard_->refusals(), "answer") +
                      " for failures");
    }
    return all;
}

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

static void summarise(const batch_result &result, const batch_answers &answers, double seconds) {
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

// --- the run ------------------------------------------------------------------------------------

static batch_options options_of(const batch_arguments &arguments) {
    batch_options options;
    options.inputs = inputs_of(arguments);
    options.format = format_of(arguments.from);
    options.jobs = static_cast<unsigned>(arguments.jobs);
    if (options.jobs == 0) {
        options.jobs = std::max(std::thread::hardware_concurrency(), 1u);
    }
    options.form = form_of(arguments);
    options.report = arguments.report;
    options.user_dir = arguments.configuration.user_dir;
    options.questions = static_cast<unsigned>(arguments.questions);
    options.deadline = std::chrono::milliseconds(std::llround(arguments.deadline * 1000));
    options.write = write_out;
    return options;
}

// A reader that has gone away wants no more, and needs no telling.
static bool is_gone(uint32_t error) {
    return error == platform::error_broken_pipe || error == platform::error_no_data;
}

static exit_status status_of(const batch_result &result) {
    if (result.write_error && !is_gone(result.write_error)) {
        throw failure("standard output can't be written: " +
                      data_files::system_text(result.write_error));
    }
    if (!result.failure.empty()) {
        throw failure(result.failure);
    }
    if (result.write_error) {
        return exit_status::failed;
    }
    if (result.interrupted) {
        complain("interrupted");
    }
    return result.interrupted || result.sums.refused > 0 ? exit_status::partly : exit_status::done;
}

static batch_result run_with_bar(batch_options &options, std::optional<uint64_t> total) {
    const bool visible =
        platform::stream_is_terminal(stderr) && !platform::stream_is_terminal(stdout);
    rate_bar bar(total, visible);
    options.progress = [&bar](uint64_t count, uint64_t read) { bar.show(count, read); };
    const quiet_engine quiet;
    return run_batch(options);
}

static exit_status batch(const batch_arguments &arguments) {
    batch_options options = options_of(arguments);
    std::optional<uint64_t> total;
    check_inputs(options.inputs, &total);
    configured_engine engine(arguments.configuration);
    batch_answers answers(arguments);
    answers.put_into(arguments, &options);
    options.substitutes = engine.substitutes();
    loaded_configuration loaded;
    if (!options.substitutes) { // whose lists are not what was loaded
        loaded = load_configuration(options.user_dir);
        options.configuration = loaded.get();
    }
    const interruptible until_wanted;
    const auto begin = std::chrono::steady_clock::now();
    const batch_result result = run_with_bar(options, total);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    if (!arguments.quiet && !is_gone(result.write_error)) {
        summarise(result, answers, took.count());
    }
    return status_of(result);
}

// --- the command line ---------------------------------------------------------------------------

static option_group input_options(batch_arguments *to) {
    return {
        "The transactions",
        {{"--from",
          &to->from,
          "The inputs' format, when their look does not tell: json, policy, tsv, qflog, postfix, "
          "exim",
          {.value = "FORMAT"}},
         {"--jobs",
          &to->jobs,
          "How many are judged at once (as many as there are processors)",
          {.value = "N", .check = between(1, 1024)}}},
    };
}

static option_group dns_options(batch_arguments *to) {
    return {
        "The DNS",
        {{"--dns",
          &to->dns,
          "recorded uses the answers that decision records bring, off none, live asks the DNS, "
          "FILE holds answers: records, or a case (recorded)",
          {.value = "recorded|off|live|FILE"}},
         {"--server",
          &to->server,
          "Another DNS server to ask, as address or address:port",
          {.value = "ADDRESS"}},
         {"--deadline",
          &to->deadline,
          "Seconds for all DNS questions of a transaction together (10)",
          {.value = "SECONDS", .check = between(0.001, 3600)}},
         {"--questions",
          &to->questions,
          "How many DNS questions are on their way at once (64)",
          {.value = "N", .check = between(1, 1024)}},
         {"--guards", &to->guards,
          "Take answers of block lists that list nobody, and refused questions, for failures, as "
          "the live service does"}},
    };
}

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
         {"--quiet", &to->quiet, "No summary on standard error"}},
    };
}

command batch_command() {
    auto to = std::make_shared<batch_arguments>();
    return {
        .name = "batch",
        .description = "Judge many transactions: one in, one line out, in their order",
        .options = {{"FILES",
                     &to->inputs,
                     "Files with transactions, - for standard input (-): decision records, policy "
                     "requests of Postfix, tab-separated values, mail logs",
                     {.required = false}}},
        .groups = {input_options(to.get()), configuration_options(&to->configuration),
                   dns_options(to.get()), output_options(to.get())},
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
