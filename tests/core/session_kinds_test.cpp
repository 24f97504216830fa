// Every rule of the table with every kind of session, in both flavours. The table's checks are
// replaced by counters, and what should happen is computed from the table's switches.
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "check_lists.h"
#include "heap_text.h"
#include "log_capture.h"
#include "quillfence-checks.h"

namespace quillfence::testing {

namespace {

// As many counters as there are rules, and some to spare: a check is a function, and functions are
// made at compile time.
constexpr size_t counter_count = 64;
std::array<int, counter_count> calls;
uint8_t answer; // of every counter

template <size_t index>
uint8_t counter(smtp_state *) {
    ++calls[index];
    return answer;
}

template <size_t... index>
constexpr std::array<rule_check, counter_count> counters_of(std::index_sequence<index...>) {
    return {counter<index>...};
}
constexpr auto counters = counters_of(std::make_index_sequence<counter_count>());

// The table with a counter for each check.
void fill(rule_list *rules) {
    ASSERT_LE(rule_rows().size(), counter_count);
    size_t index = 0;
    for (const rule_row &row : rule_rows()) {
        rules->add(row.name, row.check ? counters[index] : nullptr, row.mua, row.ndr, row.localhost,
                   row.ipv6, row.message->body);
        ++index;
    }
}

std::vector<std::string> all_names() {
    std::vector<std::string> names;
    for (const rule_row &row : rule_rows()) {
        names.emplace_back(row.name);
    }
    return names;
}

struct kind {
    bool mua, ndr, localhost, ipv6;

    bool runs(const rule_row &row) const {
        return (!mua || row.mua) && (!ndr || row.ndr) && (!localhost || row.localhost) &&
               (!ipv6 || row.ipv6);
    }
    std::string name() const {
        return std::string(mua ? "MUA " : "") + (ndr ? "NDR " : "") +
               (localhost ? "localhost " : "") + (ipv6 ? "IPv6" : "");
    }
    void put_into(smtp_state *state) const {
        state->mua = mua;
        state->ndr = ndr;
        state->localhost = localhost;
        state->ipv6 = ipv6;
    }
};

template <class body>
void for_each_kind(body run) {
    for (unsigned bits = 0; bits < 16; ++bits) {
        const kind k = {bool(bits & 1), bool(bits & 2), bool(bits & 4), bool(bits & 8)};
        SCOPED_TRACE(k.name());
        calls.fill(0);
        run(k);
    }
}

void expect_calls(const std::vector<bool> &want) {
    for (size_t index = 0; index < want.size(); ++index) {
        EXPECT_EQ(calls[index], want[index]) << rule_rows()[index].name;
    }
}

using kinds_test = logged_test;
using traced_kinds_test = traced_test;

} // namespace

TEST_F(kinds_test, the_report_runs_every_rule_that_may_run) {
    rule_list rules;
    fill(&rules);
    for (const uint8_t each : {uint8_t{0}, uint8_t{1}}) {
        answer = each;
        for_each_kind([&](const kind &k) {
            std::vector<bool> want_calls;
            std::vector<std::string> want_hits;
            for (const rule_row &row : rule_rows()) {
                const bool runs =
                    row.check && row.name != std::string("block_all_mail") && k.runs(row);
                want_calls.push_back(runs);
                if (runs && answer && is_reportable_rule(row.name)) {
                    want_hits.push_back(row.name);
                }
            }
            session state(client_ip);
            k.put_into(state);
            vc_list_entry *hits = nullptr;
            ASSERT_EQ(run_all_spam_checks(state, rules.head, &hits), 1);
            EXPECT_EQ(taken(&hits), want_hits);
            expect_calls(want_calls);
        });
    }
}

TEST_F(kinds_test, the_decision_runs_every_enabled_rule_that_may_run) {
    rule_list rules;
    fill(&rules);
    const name_list enabled(all_names());
    answer = 0;
    for_each_kind([&](const kind &k) {
        std::vector<bool> want;
        for (const rule_row &row : rule_rows()) {
            want.push_back(row.check && k.runs(row));
        }
        session state(client_ip);
        k.put_into(state);
        ASSERT_EQ(run_spam_checks_r(state, enabled.head, rules.head), 1);
        EXPECT_EQ(state->hit_name, nullptr);
        EXPECT_EQ(state->rejection_notice, nullptr);
        expect_calls(want);
    });
}

TEST_F(kinds_test, the_decision_stops_at_the_first_hit) {
    rule_list rules;
    fill(&rules);
    const name_list enabled(all_names());
    answer = 1;
    for_each_kind([&](const kind &k) {
        std::vector<bool> want(rule_rows().size(), false);
        std::string first = "(none)";
        for (size_t index = 0; index < want.size() && first == "(none)"; ++index) {
            const rule_row &row = rule_rows()[index];
            if (row.check && k.runs(row)) {
                want[index] = true;
                first = row.name;
            }
        }
        session state(client_ip);
        k.put_into(state);
        ASSERT_EQ(run_spam_checks_r(state, enabled.head, rules.head), 1);
        EXPECT_EQ(shown(state->hit_name), first);
        expect_calls(want);
    });
}

TEST_F(kinds_test, a_rule_enabled_alone_hits_alone) {
    rule_list rules;
    fill(&rules);
    answer = 1;
    for (const rule_row &row : rule_rows()) {
        SCOPED_TRACE(row.name);
        const name_list enabled({row.name});
        for_each_kind([&](const kind &k) {
            session state(client_ip);
            k.put_into(state);
            ASSERT_EQ(run_spam_checks_r(state, enabled.head, rules.head), 1);
            EXPECT_EQ(shown(state->hit_name), row.check && k.runs(row) ? row.name : "(none)");
        });
    }
}

// The kinds are tested in the order NDR, MUA, localhost, IPv6: only the line tells.
TEST_F(traced_kinds_test, the_decision_says_why_a_rule_is_skipped) {
    rule_list rules;
    fill(&rules);
    const name_list enabled(all_names());
    answer = 0;
    for_each_kind([&](const kind &k) {
        lines want;
        for (const rule_row &row : rule_rows()) {
            const std::string rule = "rule [" + std::string(row.name) + "]";
            const std::string tail = " and " + rule + " should not run for that state... skipping";
            want.push_back("Checking " + rule);
            if (k.ndr && !row.ndr) {
                want.push_back("state is NDR" + tail);
            } else if (k.mua && !row.mua) {
                want.push_back("state is MUA" + tail);
            } else if (k.localhost && !row.localhost) {
                want.push_back("address is LOCALHOST" + tail);
            } else if (k.ipv6 && !row.ipv6) {
                want.push_back("source address is IPv6" + tail);
            } else {
                want.push_back("running " + rule);
            }
        }
        want.push_back("end of checks, returning true");
        for (std::string &line : want) {
            line = "run_spam_checks_r: " + line;
        }
        session state(client_ip);
        k.put_into(state);
        log.take();
        ASSERT_EQ(run_spam_checks_r(state, enabled.head, rules.head), 1);
        EXPECT_EQ(log.debugs(), want);
    });
}

// Block maps: localhost, IPv6, NDR, MUA. DNS block lists: NDR, MUA, localhost, IPv6. For each of
// the 16 switch settings of the rule and the 16 kinds of session.
TEST_F(traced_kinds_test, the_list_drivers_say_why_they_return) {
    const name_list lists({"no-such-map"});
    const name_list hosts({""}); // an empty host is never asked
    for (unsigned switches = 0; switches < 16; ++switches) {
        const rule_row row = {"",
                              nullptr,
                              uint8_t(switches & 1),
                              uint8_t(switches >> 1 & 1),
                              uint8_t(switches >> 2 & 1),
                              uint8_t(switches >> 3 & 1),
                              0,
                              nullptr};
        rule_list rules;
        rules.add("block_lists", nullptr, row.mua, row.ndr, row.localhost, row.ipv6);
        rules.add("block_rbl_lists", nullptr, row.mua, row.ndr, row.localhost, row.ipv6);
        for_each_kind([&](const kind &k) {
            SCOPED_TRACE(switches);
            const bool ndr = k.ndr && !row.ndr, mua = k.mua && !row.mua,
                       local = k.localhost && !row.localhost, ipv6 = k.ipv6 && !row.ipv6;
            const std::string maps = local  ? "LOCALHOST"
                                     : ipv6 ? "IPv6"
                                     : ndr  ? "NDR"
                                     : mua  ? "MUA"
                                            : "";
            const std::string rbl = ndr     ? "NDR"
                                    : mua   ? "MUA"
                                    : local ? "LOCALHOST"
                                    : ipv6  ? "IPV6"
                                            : "";
            session state(client_ip);
            k.put_into(state);
            log.take();
            EXPECT_EQ(run_bms_checks_r(state, lists.head, rules.head), 1);
            const lines map_lines = log.debugs();
            EXPECT_EQ(run_rbl_checks_r(state, hosts.head, rules.head), 1);
            const lines rbl_lines = log.debugs();
            EXPECT_EQ(state->hit_name, nullptr);
            if (!maps.empty()) {
                EXPECT_EQ(map_lines, lines{"run_bms_checks_r: connection detected as " + maps +
                                           ": returning"});
            } else { // the maps are asked
                ASSERT_FALSE(map_lines.empty());
                EXPECT_EQ(map_lines[0].find("run_bms_checks_r"), std::string::npos);
            }
            EXPECT_EQ(rbl_lines, rbl.empty()
                                     ? lines{}
                                     : lines{"run_rbl_checks_r: connection detected as " + rbl});
        });
    }
}

} // namespace quillfence::testing
