#include "replay.h"

#include <algorithm>
#include <memory>
#include <new>

#include "case_dns.h"
#include "consulted_files.h"
#include "engine_door.h"
#include "expectation.h"
#include "explain.h"
#include "file_digest.h"
#include "off_source.h"
#include "open_file.h"
#include "platform/error_numbers.h"
#include "text.h"

namespace quillfence::decision {

// --- the answers ---

namespace {

bool has_no_answer(const dns_sources::answer &known) {
    return known.status == dns_sources::status_missing ||
           known.status == dns_sources::status_deadline;
}

// What one source does not know, the next is asked.
class filled_source : public dns_sources::source {
  public:
    filled_source(source &first, source &rest) : first_(first), rest_(rest) {}

    dns_sources::answer ask(const dns_sources::question &asked) override {
        dns_sources::answer known = first_.ask(asked);
        return has_no_answer(known) ? rest_.ask(asked) : known;
    }

  private:
    source &first_;
    source &rest_;
};

// The sources of one replay.
class answers {
  public:
    // Null, or why the case's own can't be used; *detail then tells where.
    const char *prepare(const test_case &which, const replay_options &options,
                        std::string *detail) {
        dns_sources::source *chosen = own_.get();
        dns_sources::source &live = options.live ? *options.live : nobody_;
        if (options.dns == case_dns::live) {
            chosen = &live;
        } else if (const auto why = take(which)) {
            *detail = *why;
            return "a DNS answer of the case can't be used";
        } else if (options.dns == case_dns::record_missing) {
            filled_ = std::make_unique<filled_source>(*own_, live);
            chosen = filled_.get();
        } else {
            chosen = own_.get();
        }
        door_ = std::make_unique<dns_sources::engine_door>(
            options.in_front ? options.in_front(*chosen) : *chosen);
        return nullptr;
    }

    dns_source *slots() {
        return door_->slots();
    }
    bool failed() const {
        return door_->failed();
    }

  private:
    std::optional<std::string> take(const test_case &which) {
        if (which.zonedata) {
            auto zone = std::make_unique<dns_sources::zone_source>();
            auto why = add_zone_data(*zone, *which.zonedata);
            own_ = std::move(zone);
            return why;
        }
        auto recorded = std::make_unique<dns_sources::recorded_source>();
        auto why = add_answers(*recorded, which.record.dns);
        own_ = std::move(recorded);
        return why;
    }

    dns_sources::off_source nobody_;
    std::unique_ptr<dns_sources::source> own_;
    std::unique_ptr<dns_sources::source> filled_;
    std::unique_ptr<dns_sources::engine_door> door_;
};

} // namespace

// --- the files ---

static bool is_separator(char c) {
    return c == '/' || c == '\\';
}

// Whether looking there would ask another machine.
static bool leads_away(const std::string &path) {
    return path.size() > 1 && is_separator(path[0]) && is_separator(path[1]);
}

static bool leads_away(const test_case &which) {
    return leads_away(which.record.config.user_dir) ||
           std::any_of(which.server.registry.begin(), which.server.registry.end(),
                       [](const registry_answer &answer) { return leads_away(answer.data); });
}

static std::optional<std::string> difference(const config_file &then) {
    if (leads_away(then.path)) {
        return "is on another machine";
    }
    data_files::open_file opened;
    const uint32_t error = opened.open(then.path);
    if (then.missing) {
        return error ? std::nullopt : std::optional<std::string>("is there now");
    }
    if (error) {
        return data_files::is_missing(error) ? "is missing" : "can't be read";
    }
    uint64_t size = 0;
    std::string digest;
    if (opened.size(&size) || data_files::digest_of_file(then.path, &digest)) {
        return "can't be read";
    }
    const bool same =
        size == then.bytes.value_or(size) && (then.sha256.empty() || digest == then.sha256);
    return same ? std::nullopt : std::optional<std::string>("differs");
}

static std::vector<file_difference> differences_of(const std::vector<config_file> &files) {
    std::vector<file_difference> all;
    for (const config_file &file : files) {
        if (auto what = difference(file)) {
            all.push_back({file.path, std::move(*what)});
        }
    }
    return all;
}

// --- what the case does not hold ---

namespace {

// Adds a warning for everything that was asked of the mail server and is not in the case.
class lack_notes {
  public:
    explicit lack_notes(std::vector<note> *notes) : notes_(notes) {}

    template <class Answer>
    void compare(const std::vector<Answer> &asked, const std::vector<Answer> &held) {
        for (const Answer &answer : asked) {
            const bool is_held = std::find(held.begin(), held.end(), answer) != held.end();
            if (answer.missing && !is_held) {
                notes_->push_back({"warning", "the case does not hold " + name_of(answer) +
                                                  "; it counts as missing"});
            }
        }
    }

  private:
    static std::string name_of(const registry_answer &answer) {
        return "the registry's " + answer.key + (answer.value ? " (" + *answer.value + ')' : "");
    }
    static std::string name_of(const address_map_answer &answer) {
        return "the address map's answer for " + answer.address;
    }
    static std::string name_of(const folder_answer &answer) {
        return "the folder " + answer.folder;
    }

    std::vector<note> *notes_;
};

} // namespace

static void add_notes(replay_result *result, const test_case &which) {
    for (const file_difference &each : result->differences) {
        result->record.notes.push_back(
            {"warning", "not as captured: " + each.path + ' ' + each.what});
    }
    if (which.captured) {
        lack_notes lacks(&result->record.notes);
        lacks.compare(result->server.registry, which.server.registry);
        lacks.compare(result->server.address_map, which.server.address_map);
        lacks.compare(result->server.folders, which.server.folders);
    }
}

// --- the run ---

static explain_options options_of(const test_case &which, const replay_options &wanted) {
    const auto behind = [](const rule_record &rule) { return rule.would.has_value(); };
    const std::vector<rule_record> &rules = which.record.rules;
    explain_options options;
    options.user_dir = which.record.config.user_dir;
    options.report = which.captured ? which.record.report.has_value() : wanted.report;
    options.all = wanted.all || std::any_of(rules.begin(), rules.end(), behind);
    options.near_misses = wanted.near_misses;
    options.times = wanted.times;
    options.substitutes = wanted.substitutes;
    options.server = which.captured || !which.server.empty() ? &which.server : nullptr;
    options.capture = true;
    options.id = which.record.id;
    options.time = which.record.time;
    return options;
}

static void replay(const test_case &which, const replay_options &wanted, replay_result *result) {
    if (leads_away(which)) {
        result->failed = "a path of the case leads to another machine";
        return;
    }
    answers sources;
    result->failed = sources.prepare(which, wanted, &result->detail);
    if (result->failed) {
        return;
    }
    result->differences = differences_of(which.record.config.files);
    explain_options options = options_of(which, wanted);
    options.dns = sources.slots();
    explain_result explained = explain(which.record.transaction, options);
    result->failed = sources.failed() ? "out of memory" : explained.failed;
    result->record = std::move(explained.record);
    result->server = std::move(explained.server);
    result->record.extra = which.record.extra;
    add_notes(result, which);
}

replay_result replay(const test_case &which, const replay_options &options) noexcept {
    replay_result result;
    try {
        replay(which, options, &result);
    } catch (const std::bad_alloc &) {
        result.failed = "out of memory";
    } catch (...) {
        result.failed = "the case could not be judged";
    }
    return result;
}

test_case captured_case(decision_record record, server_answers server) {
    test_case made;
    made.record = std::move(record);
    made.captured = true;
    made.server = std::move(server);
    made.expect = expectation_of(made.record);
    return made;
}

} // namespace quillfence::decision
