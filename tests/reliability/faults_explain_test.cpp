// Explaining on a system that fails: a wrong verdict or a wrong reason is never given; what could
// not be looked at is undecided.
#include <algorithm>

#include "../decision/explaining.h"
#include "failing_memory.h"
#include "fault_sweep.h"
#include "open_handles.h"

namespace quillfence::testing {
namespace {

// A file that is gone, or ends early, looks like one that was never there or never longer: what the
// engine makes of that is no failure.
bool looks_like_other_contents(const fault &what) {
    return what.answer == platform::error_file_not_found ||
           what.answer == platform::error_path_not_found || what.answer == platform::observed_half;
}

// A DNS question that fails has an answer for the engine: the record tells it as it tells others.
bool was_answer(const decision_record &record, const fault &what) {
    return std::any_of(record.dns.begin(), record.dns.end(),
                       [&](const dns_record &one) { return one.status == what.answer; });
}

decision_record without_times(decision_record record) {
    for (dns_record &one : record.dns) {
        one.ms.reset();
    }
    return record;
}

bool is_decided(outcome of) {
    return of == outcome::hit || of == outcome::exempt || of == outcome::no_hit;
}

// Of a rule that ran in both, what the run with a fault says is either true or "undecided".
void expect_no_other_outcome(const rule_record &got, const rule_record &whole) {
    if (is_decided(got.decision) && is_decided(whole.decision)) {
        EXPECT_EQ(got.decision, whole.decision) << got.rule << ": " << got.reason;
    }
    const bool same = got.decision == whole.decision && got.decision == outcome::hit;
    if (same && !got.names.empty()) {
        return; // which of the names is told last may differ
    }
    if (same) {
        EXPECT_EQ(got.from.index(), whole.from.index()) << got.rule << ": another kind of source";
        EXPECT_EQ(got.value, whole.value) << got.rule;
    }
}

// A later rule may decide when the first could not be looked at, but then the record says so.
bool says_earlier_rule(const decision_record &got) {
    return std::any_of(got.notes.begin(), got.notes.end(), [](const note &one) {
        return one.text.starts_with("an earlier rule could have decided");
    });
}

void expect_true(const decision_record &got, const decision_record &whole) {
    if (got.decision.is == verdict::undecided) {
        EXPECT_TRUE(got.decision.rule.empty());
        EXPECT_TRUE(got.decision.notice.empty());
    } else {
        EXPECT_EQ(got.decision.is, whole.decision.is) << got.decision.rule;
        EXPECT_TRUE(got.decision == whole.decision || says_earlier_rule(got)) << got.decision.rule;
    }
    ASSERT_EQ(got.rules.size(), whole.rules.size());
    for (size_t i = 0; i < whole.rules.size(); ++i) {
        expect_no_other_outcome(got.rules[i], whole.rules[i]);
    }
}

// What holds whatever the engine saw: every reason that is told has its rule, and the words agree.
void expect_sound(const decision_record &got) {
    EXPECT_EQ(got.rules.size(), 31u);
    if (got.decision.by == decided_by::rule) {
        EXPECT_EQ(rule_of(got, got.decision.rule).decision, outcome::hit);
    }
    if (got.decision.by == decided_by::exempt) {
        EXPECT_EQ(rule_of(got, got.decision.rule).decision, outcome::exempt);
    }
    EXPECT_EQ(got.decision.by == decided_by::block_map, !got.decision.maps.empty());
    EXPECT_EQ(got.decision.by == decided_by::rbl, !got.decision.zone.empty());
}

bool has_undecided_rule(const decision_record &got) {
    return std::any_of(got.rules.begin(), got.rules.end(), [](const rule_record &rule) {
        return rule.decision == outcome::undecided && !rule.reason.empty();
    });
}

// Whoever is left without a verdict by a failure can read what failed.
void expect_told(const decision_record &got) {
    if (got.decision.is == verdict::undecided) {
        EXPECT_EQ(got.decision.by, decided_by::error);
        EXPECT_FALSE(got.notes.empty());
        EXPECT_TRUE(!got.errors.empty() || has_undecided_rule(got));
    }
}

class faults_explain : public explain_test {
  protected:
    void sweep(const char *name) {
        const client &who = *std::find_if(std::begin(clients), std::end(clients),
                                          [&](auto &one) { return std::string(one.name) == name; });
        SCOPED_TRACE(name);
        const transaction what = transaction_of(who);
        const decision_record whole = explained(what);
        log.take();
        const drive_contents before = contents_of(drive);
        const int handles = open_handles();
        explain_result result;
        unsigned undecided = 0;
        const unsigned runs = sweep_faults(
            [] {}, [&] { result = explain(what, options); },
            [&](const fault &fault) {
                log.take(); // in the record, too
                EXPECT_EQ(changed_files(before, contents_of(drive)), "");
                EXPECT_EQ(open_handles(), handles);
                if (result.failed) {
                    return;
                }
                expect_sound(result.record);
                expect_told(result.record);
                if (!looks_like_other_contents(fault) && !was_answer(result.record, fault)) {
                    expect_true(result.record, whole);
                }
                undecided += result.record.decision.is == verdict::undecided;
            },
            QF_SWEEP_STEP);
        EXPECT_EQ(without_times(result.record), without_times(whole)) << "without a fault";
        EXPECT_GT(runs, 500u / QF_SWEEP_STEP);
        EXPECT_GT(undecided, 50u / QF_SWEEP_STEP);
    }
};

TEST_F(faults_explain, accepted) {
    drive.remove("c:/quillfence/bms/one");
    drive.write("c:/quillfence/bms/one", std::string(1024, '\0'));
    sweep("good");
}

TEST_F(faults_explain, rejected_by_a_rule) {
    sweep("nothing right");
}

TEST_F(faults_explain, rejected_by_a_map) {
    sweep("good");
}

TEST_F(faults_explain, rejected_by_a_list) {
    drive.write("c:/quillfence/control/rules.enabled", "from_blacklist\nip_blacklist\n");
    sweep("blacklisted");
}

TEST_F(faults_explain, rejected_by_patterns) {
    drive.write("c:/quillfence/control/rules.enabled", "check_dynamic_reverse_dns\n");
    sweep("dynamic");
}

TEST_F(faults_explain, exempt) {
    sweep("whitelisted");
}

TEST_F(faults_explain, exempt_by_the_users_own_list) {
    options.user_dir = "c:/quillfence/users/b/";
    drive.write("c:/quillfence/users/b/from_whitelist", "*@foe.example\n");
    sweep("blacklisted");
}

// The n-th allocation fails, the engine's or the record's: a record that is made is true.
TEST_F(faults_explain, without_memory) {
    options.all = true;
    for (const client &who : clients) {
        SCOPED_TRACE(who.name);
        const transaction what = transaction_of(who);
        const decision_record whole = explained(what);
        const int handles = open_handles();
        explain_result result;
        const unsigned runs = sweep_allocations([&] { result = explain(what, options); },
                                                [&](unsigned n) {
                                                    SCOPED_TRACE(n);
                                                    log.take();
                                                    EXPECT_EQ(open_handles(), handles);
                                                    if (!result.failed) {
                                                        expect_sound(result.record);
                                                        expect_true(result.record, whole);
                                                    }
                                                });
        EXPECT_EQ(without_times(result.record), without_times(whole)) << "with memory";
        EXPECT_GT(runs, 500u);
    }
}

} // namespace
} // namespace quillfence::testing
