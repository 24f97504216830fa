// quillfence log: searches and sums the records of decision logs.
#include <chrono>
#include <cstdio>
#include <deque>
#include <memory>
#include <thread>

#include "batch_lines.h"
#include "log_explain.h"
#include "log_follow.h"
#include "log_moment.h"
#include "log_reading.h"
#include "log_text.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/interruption.h"
#include "platform/process.h"
#include "quillfence_program.h"
#include "record_reader.h"
#include "record_words.h"
#include "stream_run.h"
#include "text.h"

namespace quillfence::programs {

using decision::log_filter;
using decision::log_record;

namespace {

enum class log_form : uint8_t { text, json, tsv };

struct log_arguments {
    std::vector<std::string> files;
    bool alone = false; // without the rotated ones

    std::vector<std::string> clients;
    std::vector<std::string> senders;
    std::vector<std::string> recipients;
    std::vector<std::string> domains;
    std::vector<std::string> rules;
    std::vector<std::string> verdicts;
    std::vector<std::string> by;
    std::vector<std::string> answers;
    std::vector<std::string> ids;
    std::string since;
    std::string until;

    bool text = false;
    bool json = false;
    bool tsv = false;
    bool summary = false;
    uint64_t limit = 0; // 0: all
    bool follow = false;
    std::string explain; // an id
    log_explain_options explaining;
};

} // namespace

// --- the filter ---------------------------------------------------------------------------------

static int64_t now() {
    platform::time_of_day time;
    if (!platform::clock_now(&time)) {
        throw failure("the system does not tell the time");
    }
    return time.seconds * 1000 + time.microseconds / 1000;
}

static std::optional<int64_t> moment_of(const char *option, const std::string &text) {
    if (text.empty()) {
        return std::nullopt;
    }
    const auto moment = decision::read_asked_moment(text, now());
    if (!moment) {
        throw failure(std::string(option) + ": " + data_files::quoted(text) +
                      " is no time; write 2026-11-22, 2026-11-22T04:51 (UTC), today, yesterday, "
                      "or 90s, 30m, 2h, 3d, 1w for so long ago");
    }
    return moment;
}

// The options' checks have seen to it that each is a word.
template <class Word>
static std::vector<Word> words_of(const std::vector<std::string> &texts) {
    std::vector<Word> words;
    for (const std::string &text : texts) {
        words.push_back(*decision::value_of_word<Word>(text));
    }
    return words;
}

static constexpr decision::log_answer all_answers[] = {
    decision::log_answer::none, decision::log_answer::dunno, decision::log_answer::reject,
    decision::log_answer::warn, decision::log_answer::ok,    decision::log_answer::other};

static std::vector<decision::log_answer> answers_of(const std::vector<std::string> &texts) {
    std::vector<decision::log_answer> answers;
    for (const std::string &text : texts) {
        for (const decision::log_answer one : all_answers) {
            if (decision::word_of(one) == text) {
                answers.push_back(one);
            }
        }
    }
    return answers;
}

static std::vector<decision::client_network> clients_of(const std::vector<std::string> &texts) {
    std::vector<decision::client_network> clients;
    for (const std::string &text : texts) {
        const auto client = decision::read_client_network(text);
        if (!client) {
            throw failure("--client: " + data_files::quoted(text) +
                          " is no address and no network; write 192.0.2.9, 192.0.2.0/24 or "
                          "2001:db8::/32");
        }
        clients.push_back(*client);
    }
    return clients;
}

// "" is what some shells make of <>.
static std::vector<std::string> addresses_of(std::vector<std::string> texts) {
    for (std::string &text : texts) {
        text = text.empty() ? "<>" : text;
    }
    return texts;
}

static log_filter filter_of(const log_arguments &arguments) {
    log_filter filter;
    filter.clients = clients_of(arguments.clients);
    filter.senders = addresses_of(arguments.senders);
    filter.recipients = addresses_of(arguments.recipients);
    filter.domains = arguments.domains;
    filter.rules = arguments.rules;
    filter.verdicts = words_of<decision::verdict>(arguments.verdicts);
    filter.by = words_of<decision::decided_by>(arguments.by);
    filter.answers = answers_of(arguments.answers);
    filter.ids = arguments.ids;
    filter.since = moment_of("--since", arguments.since);
    filter.until = moment_of("--until", arguments.until);
    if (!arguments.explain.empty()) {
        filter.ids = {arguments.explain};
    }
    return filter;
}

// --- the lines ----------------------------------------------------------------------------------

static log_form form_of(const log_arguments &arguments) {
    const bool terminal = platform::stream_is_terminal(stdout);
    return arguments.tsv                                      ? log_form::tsv
           : arguments.json || (!arguments.text && !terminal) ? log_form::json
                                                              : log_form::text;
}

namespace {

// What goes to standard output, at once or, of a limited number, at the end.
class log_output {
  public:
    explicit log_output(const log_arguments &arguments)
        : form_(form_of(arguments)), most_(arguments.limit) {
        options_.colour =
            platform::stream_is_terminal(stdout) && !platform::environment_has("NO_COLOR");
        waiting_ =
            form_ == log_form::tsv ? std::string(batch_heading(decision::batch_form::tsv)) : "";
    }

    std::string add(const log_record &record, std::string_view line) {
        std::string shown;
        const std::string why = show(record, line, &shown);
        if (!why.empty()) {
            return why;
        }
        if (most_ > 0) {
            last_.push_back(std::move(shown));
            if (last_.size() > most_) {
                last_.pop_front();
            }
        } else {
            waiting_ += shown;
        }
        constexpr size_t many = 64 * 1024;
        if (waiting_.size() >= many) {
            flush();
        }
        return "";
    }
    // Ends the holding back.
    void release() {
        for (const std::string &one : last_) {
            waiting_ += one;
        }
        last_.clear();
        most_ = 0;
        flush();
    }
    // False when whoever reads it has gone. Throws a failure when it can't be written.
    bool flush() {
        if (const uint32_t error = gone_ ? 0 : write_out(waiting_)) {
            gone_ = is_gone(error);
            if (!gone_) {
                throw failure(file_error("standard output", error));
            }
        }
        waiting_.clear();
        return !gone_;
    }
    bool gone() const {
        return gone_;
    }

  private:
    // In the form that is asked for; a reason when that can't be done.
    std::string show(const log_record &record, std::string_view line, std::string *shown) const {
        if (form_ == log_form::json) {
            *shown = std::string(line) + '\n';
        } else if (form_ == log_form::text) {
            *shown = log_row(record, options_);
        } else {
            decision::json_problem problem;
            const auto whole = decision::read_record(line, &problem);
            if (!whole) {
                return problem.text;
            }
            append_record(*shown, decision::batch_form::tsv, *whole, 0, "");
        }
        return "";
    }

    const log_form form_;
    uint64_t most_;
    text_options options_;
    std::string waiting_;
    std::deque<std::string> last_;
    bool gone_ = false;
};

} // namespace

// --- the runs -----------------------------------------------------------------------------------

static exit_status status_of(const log_sifter &sifter, const log_reading &reading) {
    if (reading.gone) {
        return exit_status::failed;
    }
    if (reading.interrupted) {
        complain("interrupted");
    }
    return reading.interrupted || sifter.is_partial() ? exit_status::partly
           : sifter.passed() == 0                     ? exit_status::no
                                                      : exit_status::done;
}

static log_reading read_all(const log_arguments &arguments, log_sifter &sifter, bool quiet_output,
                            const std::function<bool()> &go_on) {
    decision::opened_logs logs = open_logs_or_fail(arguments.files, !arguments.alone);
    const bool visible = platform::stream_is_terminal(stderr) &&
                         (quiet_output || !platform::stream_is_terminal(stdout));
    const interruptible until_wanted;
    const log_reading reading = read_logs(logs, sifter, visible, go_on);
    sifter.complain();
    return reading;
}

static exit_status list(const log_arguments &arguments) {
    const log_filter filter = filter_of(arguments);
    log_output out(arguments);
    log_sifter sifter(filter, decision::log_depth::for_searching,
                      [&out](const log_record &record, std::string_view line, const log_place &) {
                          return out.add(record, line);
                      });
    log_reading reading =
        read_all(arguments, sifter, arguments.limit > 0, [&out] { return !out.gone(); });
    out.release();
    reading.gone = out.gone();
    return status_of(sifter, reading);
}

static exit_status summarise(const log_arguments &arguments) {
    const log_filter filter = filter_of(arguments);
    decision::log_tally tally;
    log_sifter sifter(filter, decision::log_depth::for_sums,
                      [&tally](const log_record &record, std::string_view, const log_place &) {
                          tally.add(record);
                          return std::string();
                      });
    const log_reading reading = read_all(arguments, sifter, true, [] { return true; });
    const std::string text = summary_text(summarise_log(tally));
    if (const uint32_t error = write_out(text); error && !is_gone(error)) {
        throw failure(file_error("standard output", error));
    }
    return status_of(sifter, reading);
}

static exit_status explain_one(const log_arguments &arguments) {
    const log_filter filter = filter_of(arguments);
    found_record found;
    log_sifter sifter(filter, decision::log_depth::for_searching,
                      [&](const log_record &record, std::string_view line, const log_place &at) {
                          if (record.id == arguments.explain) {
                              found.line = line;
                              found.place = at.file + ":" + std::to_string(at.line);
                              ++found.count;
                          }
                          return std::string();
                      });
    const log_reading reading = read_all(arguments, sifter, true, [] { return true; });
    if (reading.interrupted) {
        throw failure("interrupted");
    }
    if (found.count == 0) {
        complain("there is no record with the id " + data_files::quoted(arguments.explain));
        return exit_status::no;
    }
    const exit_status status = explain_found(found, arguments.explaining);
    return status == exit_status::done && sifter.is_partial() ? exit_status::partly : status;
}

static void pause() {
    constexpr std::chrono::milliseconds step(20);
    constexpr int steps = 10;
    for (int i = 0; i < steps && !platform::interruption_noted(); ++i) {
        std::this_thread::sleep_for(step);
    }
}

static exit_status follow(const log_arguments &arguments) {
    if (arguments.files.size() != 1 || arguments.files.front() == "-") {
        throw failure("--follow: name one file");
    }
    const log_filter filter = filter_of(arguments);
    log_output out(arguments);
    log_sifter sifter(filter, decision::log_depth::for_searching,
                      [&out](const log_record &record, std::string_view line, const log_place &) {
                          return out.add(record, line);
                      });
    const interruptible until_wanted;
    log_follower end(arguments.files.front());
    while (!platform::interruption_noted() && !out.gone()) {
        end.look(sifter);
        sifter.complain();
        out.release(); // from then on each at once
        pause();
    }
    return out.gone()            ? exit_status::failed
           : sifter.is_partial() ? exit_status::partly
                                 : exit_status::done;
}

static exit_status log(const log_arguments &arguments) {
    if (!arguments.explain.empty()) {
        return explain_one(arguments);
    }
    if (arguments.summary) {
        return summarise(arguments);
    }
    if (!arguments.follow) {
        return list(arguments);
    }
    log_arguments following = arguments;
    constexpr uint64_t shown_before = 10;
    following.limit = arguments.limit ? arguments.limit : shown_before;
    return follow(following);
}

// --- the command line ---------------------------------------------------------------------------

static std::vector<std::string> texts_of(std::span<const std::string_view> words) {
    return {words.begin(), words.end()};
}

static option_group filter_options(log_arguments *to) {
    std::vector<std::string> answers;
    for (const decision::log_answer one : all_answers) {
        answers.emplace_back(decision::word_of(one));
    }
    const auto each = [](const char *value, value_check check = {}) {
        return option_details{.value = value, .check = std::move(check), .values_at_once = 1};
    };
    return {
        "Which records (all of these hold; of one that is given twice, either)",
        {{"--client", &to->clients, "The client's address, or its network", each("ADDRESS[/BITS]")},
         {"--sender", &to->senders, "The sender, or all of a @domain; <> for bounces",
          each("ADDRESS")},
         {"--recipient", &to->recipients, "The recipient, or all of a @domain", each("ADDRESS")},
         {"--domain", &to->domains,
          "The domain of the sender or of the recipient, or one that it is below", each("NAME")},
         {"--rule", &to->rules, "The rule that decided", each("NAME")},
         {"--verdict", &to->verdicts, "accept, reject, undecided",
          each("WORD", one_of(texts_of(decision::words<decision::verdict>())))},
         {"--by", &to->by,
          "What decided: engine_off, exempt, rule, block_map, rbl, nothing, error, missing",
          each("WORD", one_of(texts_of(decision::words<decision::decided_by>())))},
         {"--answered", &to->answers,
          "What the mail server was told: none, dunno, reject, warn, ok, other",
          each("WORD", one_of(answers))},
         {"--id", &to->ids, "The id, or the id of the message without its last number", each("ID")},
         {"--since",
          &to->since,
          "Not before: 2026-11-22, 2026-11-22T04:51 (UTC), today, yesterday, or 90s, 30m, 2h, "
          "3d, 1w for so long ago",
          {.value = "TIME", .check = not_empty()}},
         {"--until", &to->until, "Before it", {.value = "TIME", .check = not_empty()}}},
    };
}

static option_group output_options(log_arguments *to) {
    return {
        "What to show",
        {{"--text", &to->text, "Two lines a record (on a terminal)"},
         {"--json",
          &to->json,
          "The records as they stand there (elsewhere)",
          {.excludes = {"--text"}}},
         {"--tsv",
          &to->tsv,
          "Columns with tabs between them, as those of batch",
          {.excludes = {"--text", "--json"}}},
         {"--limit",
          &to->limit,
          "No more than the newest ones",
          {.value = "N", .check = between(1, 100'000)}},
         {"--summary",
          &to->summary,
          "Sums: what decided, days and hours, clients and senders, DNS block lists",
          {.excludes = {"--text", "--json", "--tsv", "--limit"}}},
         {"--follow",
          &to->follow,
          "The newest 10 (--limit), and then what is added, until Ctrl-C",
          {.excludes = {"--summary"}}},
         {"--explain",
          &to->explain,
          "The whole of one record, as explain shows it",
          {.value = "ID",
           .check = not_empty(),
           .excludes = {"--summary", "--follow", "--id", "--tsv", "--limit"}}},
         {"--again",
          &to->explaining.again,
          "Judge it once more with the configuration of now and the record's DNS answers, and say "
          "what differs",
          {.needs = {"--explain"}}}},
    };
}

static option_group again_options(log_arguments *to) {
    option_group group = configuration_options(&to->explaining.configuration);
    group.title = "The configuration of --again";
    for (option &one : group.options) {
        one.with.needs.emplace_back("--again");
    }
    return group;
}

command log_command() {
    auto to = std::make_shared<log_arguments>();
    return {
        .name = "log",
        .description = "Search and sum the records of decision logs",
        .options = {{"FILES",
                     &to->files,
                     "Decision logs, plain or compressed by gzip, each with what rotation made of "
                     "it (FILE.1, FILE.2.gz ...), the oldest first; - for standard input",
                     {.check = not_empty()}},
                    {"--alone", &to->alone, "Without the rotated ones"}},
        .groups = {filter_options(to.get()), output_options(to.get()), again_options(to.get())},
        .footer =
            R"(Exit status:
  0  records were found; of --explain --again: it is decided as it was
  1  none was found; of --explain --again: it is decided otherwise now
  2  could not run to the end
  3  done, but for lines that are no records, or files that can't be read to
     their end, which standard error names; or interrupted)",
        .run =
            [to] {
                to->explaining.json = to->json;
                return log(*to);
            },
    };
}

} // namespace quillfence::programs
