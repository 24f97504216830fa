#include "explained.h"

#include <algorithm>

#include "captured.h"
#include "case_input.h"
#include "engine_messages.h"
#include "explain.h"
#include "explain_words.h"
#include "line_input.h"
#include "open_file.h"
#include "platform/clock.h"
#include "quillfence.h"
#include "started_engine.h"
#include "surroundings.h"
#include "text.h"
#include "utc_text.h"
#include "vc_w32.h"
#include "what_if.h"

namespace quillfence::programs {

using decision::decision_record;
using decision::test_case;

// --- the transaction ----------------------------------------------------------------------------

static std::string all_of(const std::string &path) {
    std::string bytes;
    if (path != "-") {
        if (const uint32_t error = data_files::read_file(path, &bytes)) {
            throw failure(file_error(path, error));
        }
        return bytes;
    }
    char piece[4096];
    while (const size_t got = std::fread(piece, 1, sizeof piece, stdin)) {
        bytes.append(piece, got);
    }
    return bytes;
}

static std::string time_now() {
    platform::time_of_day now;
    return platform::clock_now(&now) ? decision::utc_text(now.seconds, now.microseconds / 1000)
                                     : "";
}

static decision::input_transaction transaction_of(const explain_arguments &arguments) {
    if (!arguments.input.empty()) {
        const std::string name = arguments.input == "-" ? "standard input" : arguments.input;
        return transaction_of_text(all_of(arguments.input), name, arguments.from, arguments.number);
    }
    decision::input_transaction read;
    read.transaction = arguments.values.empty() ? transaction_of_facts(arguments.facts)
                                                : transaction_of_values(arguments.values);
    return read;
}

// --- the surroundings ---------------------------------------------------------------------------

namespace {

// The engine's lines go into the record; what it says at its start goes to standard error.
class quiet_engine {
  public:
    quiet_engine() {
        data_files::engine_messages::require_memory(); // else the engine's tables lack something
        vc_set_log_function(nullptr);
    }
    ~quiet_engine() {
        vc_set_log_function(log_to_standard_error);
    }
    quiet_engine(const quiet_engine &) = delete;
    quiet_engine &operator=(const quiet_engine &) = delete;

  private:
    const started_engine started;
};

} // namespace

static void add_notes(decision_record *record, const std::vector<std::string> &texts) {
    for (const std::string &text : texts) {
        record->notes.push_back({"info", text});
    }
}

[[noreturn]] static void not_explained(const char *what, const char *why,
                                       const std::string &detail) {
    throw failure(std::string(what) + " could not be explained: " + why +
                  (detail.empty() ? "" : ": " + detail));
}

// --- a transaction ------------------------------------------------------------------------------

// What the decision was made of stays.
static void refuse_consulted(const decision_record &record, const explain_arguments &arguments) {
    std::vector<std::string> consulted;
    for (const decision::config_file &file : record.config.files) {
        consulted.push_back(file.path);
    }
    refuse_overwriting(consulted, {arguments.html, arguments.capture});
}

static explained explain_transaction(const explain_arguments &arguments, capture *to) {
    decision::input_transaction input = transaction_of(arguments);
    const surroundings chosen(arguments.drive_c, arguments.registry);
    check_folders(arguments.user_dir);
    what_if changed(arguments.user_dir);
    change_lists(arguments, &changed);
    const quiet_engine engine;
    answer_stack answers(arguments.answers, input.transaction.ip.value_or(""));
    decision::explain_options options;
    options.user_dir = arguments.user_dir;
    options.all = arguments.all;
    options.dns = answers.slots();
    options.substitutes = changed.substitutes();
    options.id = input.id.empty() ? "1" : input.id;
    options.time = input.time.empty() ? time_now() : input.time;
    options.capture = to != nullptr;
    decision::explain_result result = decision::explain(input.transaction, options);
    if (result.failed || answers.failed()) {
        not_explained("the transaction", result.failed ? result.failed : "out of memory", "");
    }
    refuse_consulted(result.record, arguments);
    result.record.extra = std::move(input.extra);
    add_notes(&result.record, changed.changes());
    add_notes(&result.record, answers.remarks());
    if (to) {
        to->take(decision::captured_case(result.record, std::move(result.server)));
    }
    return {std::move(result.record)};
}

// --- a case -------------------------------------------------------------------------------------

static void give_user_dir(const std::string &user_dir, test_case *which) {
    if (user_dir.empty()) {
        return;
    }
    if (which->captured || !which->record.config.user_dir.empty()) {
        throw failure("--user-dir: the case has its own");
    }
    which->record.config.user_dir = user_dir;
}

static void check_case(const explain_arguments &arguments, const test_case &which) {
    if (!arguments.registry.empty() && (which.captured || !which.server.empty())) {
        throw failure("--registry: the case has its own answers of the registry");
    }
}

// What is missing now and was not when the case was captured.
static std::vector<decision::missing_item> unanswered(const decision_record &now,
                                                      const decision_record &then) {
    std::vector<decision::missing_item> items;
    for (const decision::missing_item &item : now.missing) {
        const auto &known = then.missing;
        if (item.what == "dns" && std::find(known.begin(), known.end(), item) == known.end()) {
            items.push_back(item);
        }
    }
    return items;
}

static void compare_decisions(decision_record *now, const test_case &which) {
    if (which.captured && headline(*now) != headline(which.record)) {
        now->notes.push_back({"warning", "when captured, it was: " + headline(which.record)});
    }
}

// A new case of an old one keeps what people have written into it.
static test_case captured_again(const decision_record &record, decision::server_answers server,
                                const test_case &from) {
    test_case made = decision::captured_case(record, std::move(server));
    made.description = from.description;
    made.expect = from.expect.empty() ? made.expect : from.expect;
    return made;
}

static explained explain_case(const explain_arguments &arguments, capture *to) {
    case_input input(arguments.case_file);
    test_case &which = input.what();
    check_case(arguments, which);
    give_user_dir(arguments.user_dir, &which);
    const bool other_files = !arguments.drive_c.empty();
    const surroundings chosen(other_files ? arguments.drive_c : input.drive_c(""),
                              arguments.registry);
    check_folders(arguments.user_dir);
    what_if changed(which.record.config.user_dir);
    change_lists(arguments, &changed);
    const quiet_engine engine;
    case_answers answers(arguments.answers, which.record.transaction.ip.value_or(""));
    decision::replay_options options;
    options.dns = answers.dns();
    options.live = answers.live();
    options.in_front = [&](dns_sources::source &next) -> dns_sources::source & {
        return answers.in_front(next);
    };
    options.all = arguments.all;
    options.substitutes = changed.substitutes();
    decision::replay_result result = decision::replay(which, options);
    if (result.failed) {
        not_explained("the case", result.failed, result.detail);
    }
    refuse_consulted(result.record, arguments);
    add_notes(&result.record, changed.changes());
    add_notes(&result.record, answers.remarks());
    if (to) {
        to->take(captured_again(result.record, std::move(result.server), which));
    }
    compare_decisions(&result.record, which);
    explained made{std::move(result.record), std::move(result.differences)};
    made.unanswered = unanswered(made.record, which.record);
    return made;
}

// --- what was asked -----------------------------------------------------------------------------

static void check_ways(const explain_arguments &arguments) {
    const int ways = !arguments.values.empty() + !arguments.input.empty() + arguments.facts.any() +
                     !arguments.case_file.empty();
    if (ways > 1) {
        throw failure("give the transaction in one way: by name (--ip, --sender ...), as the "
                      "replayer's nine values, by --input or by --case");
    }
    if (ways == 0) {
        throw failure("there is no transaction; try \"quillfence explain --help\"");
    }
}

static void check_dns(const explain_arguments &arguments) {
    const answer_options &answers = arguments.answers;
    const bool of_case = !arguments.case_file.empty();
    const bool asks = answers.dns == dns_is_live || answers.dns == "record-missing";
    if (!of_case && !answers.dns.empty() && answers.dns != dns_is_live &&
        answers.dns != dns_is_off) {
        throw failure("--dns " + answers.dns + " is about the answers of a --case");
    }
    if (of_case && !asks && !answers.server.empty()) {
        throw failure("--server: a case asks nobody unless --dns live or --dns record-missing "
                      "is given");
    }
}

static void check_capture(const explain_arguments &arguments) {
    const bool what_if = !arguments.with_list.empty() || !arguments.without_list.empty();
    if (!arguments.capture.empty() && what_if) {
        throw failure("--capture: a case holds what is there; leave --with-list and "
                      "--without-list away");
    }
}

explained explain_what_was_asked(const explain_arguments &arguments) {
    check_ways(arguments);
    check_dns(arguments);
    check_capture(arguments);
    refuse_overwriting({arguments.input, arguments.case_file, arguments.redact, arguments.registry},
                       {arguments.capture, arguments.html});
    std::optional<capture> kept;
    if (!arguments.capture.empty()) {
        kept.emplace(arguments);
    }
    capture *const to = kept ? &*kept : nullptr;
    explained made = arguments.case_file.empty() ? explain_transaction(arguments, to)
                                                 : explain_case(arguments, to);
    if (kept) {
        kept->commit();
    }
    return made;
}

} // namespace quillfence::programs
