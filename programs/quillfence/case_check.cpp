#include "case_check.h"

#include <algorithm>
#include <chrono>
#include <optional>

#include "case_update.h"
#include "deadline_source.h"
#include "explain_words.h"
#include "file_output.h"
#include "live_source.h"
#include "memo_source.h"
#include "quillfence.h"
#include "record_words.h"
#include "surroundings.h"
#include "text.h"

namespace quillfence::programs {

using namespace decision;

static constexpr std::chrono::seconds live_deadline{10}; // for all questions of a case

// --- what is expected ---

static expectation expected_of(const test_case &which) {
    return which.expect.empty() && which.captured ? expectation_of(which.record) : which.expect;
}

// A case about something that is not known may lack an answer.
static bool expects_undecided(const expectation &expected) {
    return std::find(expected.verdict.begin(), expected.verdict.end(), word(verdict::undecided)) !=
           expected.verdict.end();
}

// --- the run ---

namespace {

// The DNS itself, for a case that is to ask it.
class live_answers {
  public:
    dns_sources::source *first() {
        return &memo_;
    }

  private:
    dns_sources::live_source system_;
    dns_sources::deadline_source deadline_{system_, live_deadline};
    dns_sources::memo_source memo_{deadline_};
};

} // namespace

static void give_user_dir(test_case *which, const std::string &user_dir) {
    std::string &own = which->record.config.user_dir;
    if (own.empty() && !which->captured) {
        own = user_dir;
    }
}

static bool wants_report(const expectation &expected) {
    return expected.spam_hits || expected.bms_hits;
}

static replay_result replayed(case_input *input, const check_options &options) {
    give_user_dir(&input->what(), options.user_dir);
    const surroundings around(input->drive_c(options.drive_c), options.registry);
    require_directory(quillfence_base_dir,
                      "name the folder that holds the server's quillfence/ with --drive-c");
    std::optional<live_answers> live;
    replay_options how;
    how.dns = options.dns;
    if (how.dns != case_dns::recorded) {
        how.live = live.emplace().first();
    }
    how.report = wants_report(input->what().expect);
    how.near_misses = how.times = false;
    return replay(input->what(), how);
}

// --- what came of it ---

// What nobody answered this time. The decision of a captured case may have lacked an answer, too.
static std::vector<std::string> unanswered(const decision_record &record,
                                           const std::vector<missing_item> &then) {
    std::vector<std::string> all;
    for (const missing_item &item : record.missing) {
        if (item.what != "fact" && std::find(then.begin(), then.end(), item) == then.end()) {
            all.push_back(item.type + ' ' + item.name);
        }
    }
    return all;
}

static std::string reason_of(const decision_record &record) {
    for (const rule_record &rule : record.rules) {
        if (!rule.rule.empty() && rule.rule == record.decision.rule) {
            return rule.reason;
        }
    }
    return "";
}

static void tell(const replay_result &replayed, const test_case &which, case_result *result) {
    const decision_record &record = replayed.record;
    result->decided = headline(record);
    if (const source *const from = source_that_decided(record)) {
        result->entry = source_text(*from);
    }
    result->reason = reason_of(record);
    result->missing = unanswered(record, which.record.missing);
    for (const file_difference &file : replayed.differences) {
        result->changed.push_back(file.path + ' ' + file.what);
    }
    for (const note &each : record.notes) {
        if (each.severity == "warning") {
            result->notes.push_back(each.text);
        }
    }
    for (const error_line &line : record.errors) {
        result->errors.push_back(line.module + ' ' + line.function + ": " + line.text);
    }
}

// Where nothing is expected, all that would be.
static std::vector<mismatch> wrong_in(const decision_record &record, const expectation &expected) {
    if (!expected.empty()) {
        return compare(expected, record);
    }
    expectation nothing;
    nothing.verdict = nothing.by = {"(nothing)"};
    if (!record.decision.rule.empty()) {
        nothing.rule = {"(nothing)"};
    }
    return compare(nothing, record);
}

// --- the correction ---

// Puts another text in the file's place, unless somebody has changed the file meanwhile.
static void replace_text(const std::string &path, const std::string &before,
                         const std::string &after) {
    file_output out(path);
    std::string now;
    const uint32_t error = data_files::read_file(path, &now);
    if (error || now != before) {
        throw failure(path + ": has changed while it was tested; it stays as it is");
    }
    out.write(after.data(), after.size());
    out.commit();
}

// Whether what came is the configuration's doing, and not that of a disk or of a question without
// an answer.
static bool may_be_expected(const replay_result &came, bool answered) {
    const decision_record &record = came.record;
    return answered && record.errors.empty() && record.decision.by != decided_by::error;
}

static void correct(const case_input &input, const decision_record &record,
                    const check_options &options, case_result *result) {
    const expectation &stood = input.what().expect;
    const expectation now = stood.empty() ? expectation_of(record) : corrected(stood, record);
    if (!compare(now, record).empty()) {
        return; // no report, say: there is nothing that could be expected
    }
    if (input.is_bundle()) {
        throw wrong_case(result->path, 0,
                         "is a bundle; correct \"expect\" in its case.json by hand");
    }
    const std::string text = with_expectation(input.text(), stood, now);
    options.update(*result);
    replace_text(result->path, input.text(), text);
    result->is = case_outcome::as_expected;
}

// --- the whole ---

static void check(const check_options &options, case_result *result) {
    case_input input(result->path);
    result->description = input.what().description;
    const expectation expected = expected_of(input.what());
    if (expected.empty() && !options.update) {
        throw wrong_case(result->path, 0,
                         "has neither \"expect\" nor a captured decision, so that nothing can be "
                         "checked; --update adds what comes");
    }
    const replay_result came = replayed(&input, options);
    if (came.failed) {
        const std::string detail = came.detail.empty() ? "" : ": " + came.detail;
        throw wrong_case(result->path, 0, came.failed + detail);
    }
    tell(came, input.what(), result);
    result->wrong = wrong_in(came.record, expected);
    const bool answered = result->missing.empty() || expects_undecided(expected);
    result->is = result->wrong.empty() && answered ? case_outcome::as_expected
                                                   : case_outcome::not_as_expected;
    if (!options.update || result->wrong.empty()) {
        return;
    }
    if (may_be_expected(came, answered)) {
        correct(input, came.record, options, result);
    } else {
        result->notes.emplace_back("the case stays as it is: something went wrong on the way");
    }
}

// What failed may be another file.
static std::string without_path(const std::string &text, const std::string &path) {
    return text.starts_with(path + ": ") ? text.substr(path.size() + 2) : text;
}

case_result check_case(const std::string &path, const check_options &options) {
    case_result result;
    result.path = path;
    const auto begin = std::chrono::steady_clock::now();
    try {
        check(options, &result);
    } catch (const wrong_case &why) {
        result.is = case_outcome::not_run;
        result.line = why.line;
        result.problem = why.problem;
    } catch (const failure &why) {
        result.is = case_outcome::not_run;
        result.problem = without_path(why.what(), path);
    }
    result.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    return result;
}

} // namespace quillfence::programs
