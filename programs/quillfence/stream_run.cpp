#include "stream_run.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <system_error>
#include <thread>

#include "engine_messages.h"
#include "open_file.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "platform/interruption.h"
#include "rate_bar.h"
#include "text.h"
#include "vc_w32.h"

namespace quillfence::programs {

// --- inputs -------------------------------------------------------------------------------------

static std::vector<std::string> inputs_of(const stream_arguments &arguments) {
    return arguments.inputs.empty() ? std::vector<std::string>{"-"} : arguments.inputs;
}

std::optional<uint64_t> check_inputs(const std::vector<std::string> &inputs) {
    std::optional<uint64_t> total = 0;
    for (const std::string &path : inputs) {
        if (path == "-") {
            total.reset();
            continue;
        }
        data_files::open_file file;
        uint64_t size = 0;
        if (const uint32_t error = file.open(path)) {
            throw failure(file_error(path, error));
        }
        if (file.size(&size)) {
            total.reset();
        } else if (total) {
            *total += size;
        }
    }
    return total;
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

decision::batch_options options_of(const stream_arguments &arguments) {
    decision::batch_options options;
    options.inputs = inputs_of(arguments);
    options.format = format_of(arguments.from);
    options.jobs = static_cast<unsigned>(arguments.jobs);
    if (options.jobs == 0) {
        options.jobs = std::max(std::thread::hardware_concurrency(), 1u);
    }
    options.questions = static_cast<unsigned>(arguments.questions);
    options.deadline = std::chrono::milliseconds(std::llround(arguments.deadline * 1000));
    options.write = write_out;
    return options;
}

// --- DNS answers --------------------------------------------------------------------------------

stream_answers::stream_answers(const stream_arguments &arguments) {
    if (arguments.dns == "live") {
        open_live(arguments);
    } else if (arguments.dns != "recorded" && arguments.dns != "off") {
        if (const auto why = file_.load(arguments.dns)) {
            throw failure("--dns: " + *why);
        }
    }
}

void stream_answers::put_into(const stream_arguments &arguments, decision::batch_options *options) {
    options->live = shared_.get();
    options->memo = memo_.get();
    options->no_answers = arguments.dns == "off";
    if (!memo_ && arguments.dns != "recorded" && arguments.dns != "off") {
        options->recorded = &file_.recorded();
        options->otherwise = file_.zone();
    }
}

stream_answers::~stream_answers() {
    if (live_) {
        live_->stop(); // tells all that stands in front of it
    }
}

void stream_answers::check(const dns_sources::question &asked, dns_sources::answer *got) {
    troubles_.note(asked, *got);
    if (guard_) {
        guard_->check(asked, got);
    }
}

void stream_answers::open_live(const stream_arguments &arguments) {
    memo_ = std::make_unique<dns_sources::memo_source>(
        nobody_, dns_sources::memo_choice{.leaves_zones_alone = true});
    if (arguments.guards) {
        guard_ = std::make_unique<dns_sources::answer_guard>(block_list_zones());
    }
    live_ = std::make_unique<dns_sources::live_asker>(arguments.server,
                                                      static_cast<unsigned>(arguments.questions));
    check_dns(live_->start(), arguments.server);
    checked_ = std::make_unique<dns_sources::checked_asker>(
        *live_, [this](const dns_sources::question &asked, dns_sources::answer *got) {
            check(asked, got);
        });
    try {
        shared_ = std::make_unique<dns_sources::shared_asker>(*checked_);
    } catch (const std::system_error &error) {
        throw failure(std::string("a thread can't be started: ") + error.what());
    }
}

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
std::vector<std::string> stream_answers::remarks() const {
    constexpr size_t most = 10;
    std::vector<std::string> all;
    if (!memo_) {
        return all;
    }
    const auto troubles = troubles_.troubles();
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

// --- the run ------------------------------------------------------------------------------------

quiet_engine::quiet_engine() {
    data_files::engine_messages::require_memory();
    vc_set_log_function(nullptr);
    vc_set_oom_function(nullptr);
}

quiet_engine::~quiet_engine() {
    data_files::engine_messages::begin(log_to_standard_error);
}

interruptible::interruptible() {
    if (const uint32_t error = platform::interruption_listen()) {
        throw failure("Ctrl-C can't be waited for: " + data_files::system_text(error));
    }
}

interruptible::~interruptible() {
    platform::interruption_ignore();
}

uint32_t write_out(std::string_view lines) {
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

uint32_t write_aside(std::string_view lines) {
    return std::fwrite(lines.data(), 1, lines.size(), stderr) == lines.size() ? 0 : 1;
}

bool is_gone(uint32_t error) {
    return error == platform::error_broken_pipe || error == platform::error_no_data;
}

decision::batch_result run_with_bar(decision::batch_options &options,
                                    std::optional<uint64_t> total) {
    const bool visible =
        platform::stream_is_terminal(stderr) && !platform::stream_is_terminal(stdout);
    rate_bar bar(total, visible);
    options.progress = [&bar](uint64_t count, uint64_t read) { bar.show(count, read); };
    const quiet_engine quiet;
    return run_batch(options);
}

void check_run(const decision::batch_result &result) {
    if (result.write_error && !is_gone(result.write_error)) {
        throw failure("standard output can't be written: " +
                      data_files::system_text(result.write_error));
    }
    if (!result.failure.empty()) {
        throw failure(result.failure);
    }
}

// --- the command line ---------------------------------------------------------------------------

option input_files(stream_arguments *to) {
    return {"FILES",
            &to->inputs,
            "Files with transactions, - for standard input (-): decision records, policy requests "
            "of Postfix, tab-separated values, mail logs",
            {.required = false, .check = not_empty()}};
}

option_group input_options(stream_arguments *to) {
    return {
        "The transactions",
        {{"--from",
          &to->from,
          "The inputs' format, when their look does not tell: json, policy, tsv, qflog, postfix, "
          "exim",
          {.value = "FORMAT", .check = not_empty()}},
         {"--jobs",
          &to->jobs,
          "How many are judged at once (as many as there are processors)",
          {.value = "N", .check = between(1, 1024)}}},
    };
}

option_group dns_options(stream_arguments *to) {
    return {
        "The DNS",
        {{"--dns",
          &to->dns,
          "recorded uses the answers that decision records bring, off none, live asks the DNS, "
          "FILE holds answers: records, or a case (recorded)",
          {.value = "recorded|off|live|FILE", .check = not_empty()}},
         {"--server",
          &to->server,
          "Another DNS server to ask, as address or address:port",
          {.value = "ADDRESS", .check = not_empty()}},
         {"--deadline",
          &to->deadline,
          "Seconds for all DNS questions of a transaction together (10)",
          {.value = "SECONDS", .check = between(0.001, 3600)}},
         {"--questions",
          &to->questions,
          "How many DNS questions are on their way at once (1024; on Windows never more than 64)",
          {.value = "N", .check = between(1, dns_sources::live_asker::most_at_once)}},
         {"--guards", &to->guards,
          "Take answers of block lists that list nobody, and refused questions, for failures, as "
          "the live service does"}},
    };
}

} // namespace quillfence::programs
