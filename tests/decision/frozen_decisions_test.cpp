// With a configuration that was read beforehand, decisions are those of the files: the same record
// for every configuration and transaction, but for times. Many at random, always the same ones;
// with QUILLFENCE_PAIRS=1000000 in the environment as many as that.
#include <cstdlib>
#include <set>

#include "call_watch.h"
#include "odd_world.h"
#include "owned_snapshot.h"
#include "pattern_line_files.h"
#include "record_writer.h"
#include "world_test.h"

namespace quillfence::testing {
namespace {

constexpr unsigned pairs_a_world = 40;

unsigned wanted_pairs() {
    const char *const said = std::getenv("QUILLFENCE_PAIRS");
    return said ? static_cast<unsigned>(std::atol(said)) : QF_PAIRS;
}

// The configuration as it is. Odd names of block maps can't be looked up, and are left to the
// files.
// Files above a size are left to the system, and maps kept open.
owned_snapshot snapshot_now(uint64_t largest) {
    snapshot_report report;
    owned_snapshot loaded(__load_snapshot(nullptr, &report, largest));
    EXPECT_NE(loaded, nullptr);
    EXPECT_EQ(report.changed, nullptr);
    snapshot_report_release(&report);
    return loaded;
}

// Without what a moment brings along, and what only a snapshot has.
decision_record plain(decision_record record) {
    for (dns_record &answer : record.dns) {
        answer.ms.reset();
    }
    record.config.revision.clear();
    return record;
}

class frozen_decisions : public world_test {
  protected:
    frozen_decisions() : world_test(20261122) {}

    // One that is odd, mostly.
    void next_odd_world() {
        next_world();
        if (random() % 4) {
            make_odd(random, drive, drive_now);
        }
    }
    void choose_options() {
        options.times = false;
        options.report = random() % 4 != 0;
        options.all = random() % 2;
        options.near_misses = random() % 8 == 0;
        options.files = random() % 8 == 0;
    }
    decision_record explained(const transaction &what, const frozen_files *configuration) {
        options.configuration = configuration;
        explain_result result = explain(what, options);
        EXPECT_EQ(result.failed, nullptr);
        return std::move(result.record);
    }
    // Above which files are left and maps kept open: a real one, or one that some are above.
    uint64_t limit() {
        return random() % 4 ? largest_frozen_file : random() % 3000;
    }
    // Both records of a transaction; fails the test where they differ.
    void compare(const transaction &what, const frozen_files *frozen) {
        const decision_record by_files = plain(explained(what, nullptr));
        const decision_record told = explained(what, frozen);
        EXPECT_EQ(told.config.revision, frozen->revision);
        const decision_record by_snapshot = plain(told);
        if (by_files != by_snapshot) {
            ADD_FAILURE() << "files:    " << written(by_files)
                          << "\nsnapshot: " << written(by_snapshot);
        }
        log.take();
        ++kinds[static_cast<size_t>(by_files.decision.by)];
    }
    static std::string written(const decision_record &record,
                               record_form form = record_form::whole) {
        std::string text;
        write_record(text, record, form);
        return text;
    }
    // A transaction of which something may not be known.
    transaction known_in_part() {
        transaction what = random_transaction(random);
        std::optional<std::string> *const facts[] = {&what.ip, &what.helo, &what.sender,
                                                     &what.recipient, &what.authuser};
        if (random() % 3 == 0) {
            facts[random() % std::size(facts)]->reset();
        }
        return what;
    }

    std::map<size_t, unsigned> kinds; // pairs by what decided
};

TEST_F(frozen_decisions, are_those_of_the_files) {
    const unsigned wanted = wanted_pairs();
    for (unsigned pairs = 0; pairs < wanted && !HasFailure();) {
        next_odd_world();
        const owned_snapshot frozen = snapshot_now(limit());
        ASSERT_NE(frozen, nullptr);
        for (unsigned i = 0; i < pairs_a_world && !HasFailure(); ++i, ++pairs) {
            choose_options();
            compare(random_transaction(random), frozen.get());
        }
    }
    for (const decided_by by : {decided_by::exempt, decided_by::rule, decided_by::block_map,
                                decided_by::nothing, decided_by::engine_off}) {
        EXPECT_GE(kinds[static_cast<size_t>(by)], wanted / 2000) << static_cast<int>(by);
    }
    EXPECT_GE(kinds[static_cast<size_t>(decided_by::rbl)], wanted / 20000); // comes last
}

// What a run over many transactions saves is nothing that anybody sees.
TEST_F(frozen_decisions, are_the_same_in_a_used_result_and_without_quiet_rules) {
    explain_result used;
    std::set<outcome> quiet;
    drive.write("c:/quillfence/users/b/ip_whitelist", "10.1.2.3\n");
    for (unsigned pairs = 0; pairs < wanted_pairs() / 10 && !HasFailure();) {
        next_odd_world();
        const owned_snapshot frozen = snapshot_now(limit());
        ASSERT_NE(frozen, nullptr);
        const pattern_line_files lines(*frozen);
        for (unsigned i = 0; i < pairs_a_world && !HasFailure(); ++i, ++pairs) {
            choose_options();
            options.user_dir = random() % 4 ? "" : "c:/quillfence/users/b/";
            const transaction what = known_in_part();
            const decision_record expected = explained(what, frozen.get());
            options.pattern_lines = &lines;
            explain(what, options, &used);
            EXPECT_EQ(written(plain(used.record)), written(plain(expected)));
            options.quiet_rules = false;
            explain(what, options, &used);
            EXPECT_EQ(written(plain(used.record), record_form::brief),
                      written(plain(expected), record_form::brief));
            for (const rule_record &rule : used.record.rules) {
                if (rule.reason.empty()) {
                    quiet.insert(rule.decision);
                }
            }
            options.quiet_rules = true;
            options.pattern_lines = nullptr;
            log.take();
        }
    }
    EXPECT_TRUE(quiet.contains(outcome::no_hit));
    EXPECT_TRUE(quiet.contains(outcome::never));
}

// --- what is looked at ---

class frozen_explain : public explain_test {};

TEST_F(frozen_explain, looks_at_no_file) {
    drive.write("c:/quillfence/dynaregex/dyna.cregexes.lines", "x");
    const owned_snapshot frozen = snapshot_now(largest_frozen_file);
    ASSERT_NE(frozen, nullptr);
    const pattern_line_files lines(*frozen);
    options.near_misses = false;
    for (const client &who : clients) {
        options.configuration = nullptr;
        options.pattern_lines = nullptr;
        const decision_record by_files = plain(explained(who.name));
        options.configuration = frozen.get();
        options.pattern_lines = &lines;
        call_watch watch;
        const decision_record by_snapshot = plain(explained(who.name));
        for (const std::string &call : watch.take()) {
            EXPECT_FALSE(call.starts_with("file_") || call.starts_with("path_") ||
                         call.starts_with("stream_") || call.starts_with("directory_"))
                << who.name << ": " << call;
        }
        EXPECT_EQ(by_snapshot, by_files) << who.name;
    }
}

} // namespace
} // namespace quillfence::testing
