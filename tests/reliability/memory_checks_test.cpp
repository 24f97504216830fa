// The check runner over a rule table of the test's own when memory runs out: what can't be made is
// reported and missing, and nothing leaks (as the address sanitizer sees it).
#include <algorithm>
#include <cstring>
#include <string>

#include "../core/check_lists.h"
#include "drive_c.h"
#include "memory_sweep.h"
#include "quillfence-checks.h"
#include "quillfence.h"

namespace quillfence::testing {
namespace {

bool contains(const lines &all, const std::string &line) {
    return std::find(all.begin(), all.end(), line) != all.end();
}

using memory_checks = traced_drive_test;

TEST_F(memory_checks, no_rules_at_all_stop_the_engine) {
    int started = 1;
    {
        const failing_allocation failing(1, true);
        started = quillfence_init();
    }
    EXPECT_EQ(started, 0);
    EXPECT_EQ(quillfence_rules(), nullptr);
    const lines errors = log.errors();
    ASSERT_FALSE(errors.empty());
    EXPECT_EQ(errors.back(), "quillfence_init: no rules loaded.. engine cannot be initialized");
    quillfence_teardown();
}

TEST_F(memory_checks, the_control_file_enabled) {
    drive.write("c:/quillfence/control/enabled", "1");
    int enabled = 1;
    unsigned first = 0;
    sweep_allocations([&] { enabled = quillfence_enabled(); },
                      [&](unsigned n) {
                          EXPECT_EQ(enabled, 0) << n;
                          const lines errors = log.errors();
                          first += contains(errors, no_memory("quillfence_enabled"));
                          EXPECT_TRUE(tells_of_memory(errors, "")) << n;
                      });
    EXPECT_GE(first, 1u) << "the path";
    EXPECT_EQ(enabled, 1);
}

TEST_F(memory_checks, a_notice) {
    session state(client_ip);
    session::put(&state->helo, "a name that is longer than the macro");
    rule_list rules;
    const spam_rule *rule = rules.add("rule", nullptr, 1, 1, 1, 1, "[%IP%] [%HELO%] [%FROM%]");
    char *notice = nullptr;
    const unsigned failures =
        sweep_allocations([&] { notice = build_rejection_notice(rule, state, nullptr); },
                          [&](unsigned n) {
                              EXPECT_EQ(notice, nullptr) << n;
                              EXPECT_FALSE(log.errors().empty()) << n;
                          });
    EXPECT_GE(failures, 3u); // the copy, a longer text, the notice
    EXPECT_STREQ(notice, "[10.1.2.3] [a name that is longer than the macro] [unknown]");
    free(notice);
}

TEST_F(memory_checks, the_report_of_the_rules) {
    rule_list rules;
    rules.add("require_helo", always_hits);
    rules.add("valid_ptr", always_hits);
    session state(client_ip);
    vc_list_entry *hits = nullptr;
    int result = 1;
    unsigned seen = 0;
    const unsigned failures = sweep_allocations(
        [&] { result = run_all_spam_checks(state, rules.head, &hits); },
        [&](unsigned n) {
            EXPECT_EQ(result, 0) << n;
            EXPECT_EQ(hits, nullptr) << n << ": a partial list is not handed out";
            const lines errors = log.errors();
            seen += contains(errors, "run_all_spam_checks: Failed to append [require_helo] to list "
                                     "of spam hits");
            seen += contains(errors, "run_all_spam_checks: Failed to append [valid_ptr] to list of "
                                     "spam hits");
        });
    EXPECT_EQ(failures, 4u); // an entry and a copy for each
    EXPECT_EQ(seen, failures);
    EXPECT_EQ(taken(&hits), (lines{"require_helo", "valid_ptr"}));
}

// A failed copy of the name fails the run; the session stays releasable.
TEST_F(memory_checks, a_decision) {
    rule_list rules;
    rules.add("require_helo", always_hits);
    session state(client_ip);
    session::put(&state->base_dir, "c:/elsewhere/");
    int result = 1;
    unsigned failed_runs = 0;
    sweep_allocations([&] { result = global_spam_hit_r(state, rules.head); },
                      [&](unsigned n) {
                          const lines errors = log.errors();
                          EXPECT_FALSE(errors.empty()) << n;
                          failed_runs += result == 0;
                          if (result) {
                              EXPECT_TRUE(state->hit_name && state->rejection_notice) << n;
                          } else {
                              EXPECT_FALSE(state->hit_name && state->rejection_notice) << n;
                          }
                          session::put(&state->hit_name, nullptr);
                          session::put(&state->rejection_notice, nullptr);
                          session::put(&state->base_dir, "c:/elsewhere/");
                      });
    EXPECT_GT(failed_runs, 5u);
    EXPECT_EQ(result, 1);
    EXPECT_STREQ(state->hit_name, "require_helo");
    EXPECT_STREQ(state->base_dir, "c:/quillfence/");
}

TEST_F(memory_checks, a_decision_reports_its_own_copies) {
    rule_list rules;
    rules.add("require_helo", always_hits);
    const name_list enabled({"require_helo"});
    session state(client_ip);
    int result = 1;
    {
        const failing_allocation failing(1);
        result = run_spam_checks_r(state, enabled.head, rules.head);
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(log.errors(), lines{no_memory("run_spam_checks_r")});
    session::put(&state->base_dir, "c:/elsewhere/");
    {
        const failing_allocation failing(1);
        result = global_spam_hit_r(state, rules.head);
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(log.errors(), lines{no_memory("global_spam_hit_r")});
    EXPECT_STREQ(state->base_dir, "c:/elsewhere/") << "the old directory stays";
    {
        const failing_allocation failing(1);
        result = global_bms_r(state, rules.head);
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(log.errors(), lines{no_memory("global_bms_r")});
}

TEST_F(memory_checks, a_block_map_decision) {
    drive.write("c:/quillfence/bms/a",
                std::string(40, '\0') + "\xFF\xFF\xFF\xFF" + std::string(980, '\0'));
    rule_list rules;
    rules.add("block_lists", nullptr);
    const name_list lists({"a"});
    session state(client_ip);
    int result = 1;
    const unsigned failures =
        sweep_allocations([&] { result = run_bms_checks_r(state, lists.head, rules.head); },
                          [&](unsigned n) {
                              EXPECT_FALSE(log.errors().empty()) << n;
                              EXPECT_FALSE(state->hit_name && state->rejection_notice) << n;
                              session::put(&state->hit_name, nullptr);
                              session::put(&state->rejection_notice, nullptr);
                          });
    EXPECT_GT(failures, 5u);
    EXPECT_EQ(result, 1);
    EXPECT_STREQ(state->hit_name, "block_list (a)");
}

TEST_F(memory_checks, an_exemption) {
    rule_list rules;
    rules.add("ip_whitelist", always_hits);
    session state(client_ip);
    int result = 0;
    log.take();
    {
        const failing_allocation failing(1);
        result = is_exempt_r(state, nullptr, rules.head);
    }
    EXPECT_EQ(result, 0);
    lines own;
    for (const log_line &line : log.take()) {
        if (line.source == "quillfence-checks") {
            own.push_back(line.function + ": " + line.message);
        }
    }
    EXPECT_EQ(own, (lines{"is_exempt_r: function is_exempt_r",
                          "is_exempt_r: failed list_from_string_by_char"}));

    sweep_allocations([&] { result = is_exempt_r(state, "c:/users/a", rules.head); },
                      [&](unsigned n) {
                          EXPECT_EQ(result, 0) << n;
                          EXPECT_FALSE(log.errors().empty()) << n;
                          session::put(&state->hit_name, nullptr);
                          session::put(&state->rejection_notice, nullptr);
                      });
    EXPECT_EQ(result, 1);
    EXPECT_STREQ(state->hit_name, "ip_whitelist");
}

} // namespace
} // namespace quillfence::testing
