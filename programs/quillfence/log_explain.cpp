#include "log_explain.h"

#include "change.h"
#include "explain_text.h"
#include "explain_words.h"
#include "platform/file.h"
#include "platform/process.h"
#include "record_reader.h"
#include "record_writer.h"
#include "replay.h"
#include "stream_run.h"

namespace quillfence::programs {

using decision::decision_change;
using decision::decision_record;

// --- output -------------------------------------------------------------------------------------

static void print(const std::string &text) {
    if (const uint32_t error = write_out(text); error && !is_gone(error)) {
        throw failure(file_error("standard output", error));
    }
}

static text_options options_of_terminal() {
    text_options options;
    options.colour = platform::stream_is_terminal(stdout) && !platform::environment_has("NO_COLOR");
    return options;
}

static void print_json(const decision_record &record, decision::record_form form) {
    std::string json;
    write_record(json, record, form);
    print(json + '\n');
}

// --- again --------------------------------------------------------------------------------------

// The transaction with the answers of the record alone, against the files that are there now.
static decision_record judged_again(const decision_record &then,
                                    const configuration_arguments &arguments) {
    decision::test_case which;
    which.record.id = then.id;
    which.record.time = then.time;
    which.record.config.user_dir =
        arguments.user_dir.empty() ? then.config.user_dir : arguments.user_dir;
    which.record.transaction = then.transaction;
    which.record.extra = then.extra;
    which.record.dns = then.dns;
    configured_engine engine(arguments, which.record.config.user_dir);
    const quiet_engine quiet;
    decision::replay_options options;
    options.report = then.report.has_value();
    options.substitutes = engine.substitutes();
    decision::replay_result result = decision::replay(which, options);
    if (result.failed) {
        throw failure(std::string("the record could not be judged again: ") + result.failed +
                      (result.detail.empty() ? "" : ": " + result.detail));
    }
    for (const std::string &change : engine.changes()) {
        result.record.notes.push_back({"info", change});
    }
    return std::move(result.record);
}

static std::string decided_line(const decision_record &record, const decision::decided_side &side) {
    const std::string from = source_text(side.from);
    return headline(record) + (from.empty() ? "" : ", " + from);
}

static std::string verdict_on(const decision_change &change) {
    return change.is_change        ? "It is decided otherwise now."
           : change.is_other_entry ? "The same decision now, by another entry."
                                   : "The same decision now.";
}

// What differs, in front of the whole.
static void print_difference(const decision_record &then, const decision_record &now,
                             const decision_change &change) {
    const text_options options = options_of_terminal();
    text_page page(options);
    page.paragraph(0, verdict_on(change), change.is_change ? style::doubtful : style::strong);
    if (change.is_change || change.is_other_entry) {
        page.row("then", decided_line(then, change.before), 8);
        page.row("now", decided_line(now, change.after), 8);
    }
    print(page.take() + '\n');
}

static exit_status explain_again(const decision_record &then, const log_explain_options &options) {
    const decision_record now = judged_again(then, options.configuration);
    const decision_change change = decision::compare_decisions(then, now);
    if (options.json) {
        print_json(now, decision::record_form::whole);
    } else {
        print_difference(then, now, change);
        print(explain_text(now, options_of_terminal()));
    }
    const bool undecided = now.decision.is == decision::verdict::undecided &&
                           then.decision.is != decision::verdict::undecided;
    return undecided ? exit_status::partly : change.is_change ? exit_status::no : exit_status::done;
}

exit_status explain_found(const found_record &found, const log_explain_options &options) {
    if (found.count > 1) {
        complain(counted(found.count, "record") + " have this id; this is the newest, " +
                 found.place);
    }
    decision::json_problem problem;
    const auto record = decision::read_record(found.line, &problem);
    if (!record) {
        throw failure(found.place + ": " + problem.text);
    }
    if (options.again) {
        return explain_again(*record, options);
    }
    print(options.json ? found.line + '\n' : explain_text(*record, options_of_terminal()));
    return exit_status::done;
}

} // namespace quillfence::programs
