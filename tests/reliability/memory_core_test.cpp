// The check runner and the whole run of the replayer when memory runs out.
#include "engine_test.h"
#include "memory_sweep.h"
#include "owned_rule.h"
#include "run.h"

namespace quillfence::testing {
namespace {

using enum without_memory;

const int rule_count = static_cast<int>(rule_rows().size());

struct {
    owned_session state;
    vc_list_entry *rules;
    vc_list_entry *hits;
    owned_rule rule;
    char *text;
} it;

void release() {
    dns_script::asked(); // what the script has noted
    if (it.rules) {
        vc_destroy_list(&it.rules, free_rule_data);
    }
    if (it.hits) {
        vc_destroy_list(&it.hits, free);
    }
    free(it.text);
    it = {};
}

template <int who>
void have_session() {
    it.state = session_of(clients[who]);
    it.state->base_dir = heap_text(quillfence_base_dir);
    it.state->routable = 1;
}

// The session's findings belong together and are whole texts.
void session_is_usable() {
    EXPECT_NE(it.state->ip, nullptr);
    it.text = heap_text(shown(it.state->hit_name) + shown(it.state->rejection_notice));
}

class memory_core : public engine_test {
  protected:
    memory_core() {
        dns.answer("1.2.0.192.rbl.example.", platform::dns_type_a, 0, {{platform::dns_type_a, ""}});
    }
};

TEST_F(memory_core, rules_and_notices) {
    static const memory_case cases[] = {
        {"new_rule", nullptr, [] { return (it.rule = plain_rule("n", "r")) != nullptr; },
         [] { EXPECT_EQ(it.rule, nullptr); }, fails, "", 3, // the record and two texts
         [](unsigned) { return lines{no_memory("new_rule")}; }},
        {"build_rejection_notice", have_session<0>,
         [] {
             const spam_rule *rule = find_rule(quillfence_rules(), "valid_helo_domain");
             return (it.text = build_rejection_notice(rule, it.state.get(), nullptr)) != nullptr;
         },
         [] { EXPECT_EQ(it.text, nullptr); }},
    };
    sweep(log, cases, release);
}

// A rule that can't be made is missing from the table, the others are there in their order.
TEST_F(memory_core, rule_table) {
    const long before = live_allocations();
    const unsigned swept = sweep_allocations(
        [&] { it.rules = build_rule_table(); },
        [&](unsigned n) {
            EXPECT_EQ(vc_list_count(it.rules), rule_count - 1) << n;
            size_t row = 0;
            for (const vc_list_entry *entry = it.rules; entry; entry = entry->next, ++row) {
                const std::string name = static_cast<const spam_rule *>(entry->data)->name;
                while (row < rule_rows().size() && name != rule_rows()[row].name) {
                    ++row;
                }
            }
            EXPECT_LE(row, rule_rows().size()) << n;
            const lines errors = log.errors();
            EXPECT_EQ(errors.size(), 1u) << n;
            EXPECT_TRUE(tells_of_memory(errors, "")) << n;
            release();
        });
    EXPECT_GE(swept, rule_rows().size() * 4); // record, name, text and list entry of each
    EXPECT_EQ(vc_list_count(it.rules), rule_count);
    release();
    log.take();
    EXPECT_EQ(live_allocations() - before, 0);
}

TEST_F(memory_core, start_up) {
    int started = 0;
    sweep_allocations([&] { started = quillfence_init(); },
                      [&](unsigned n) {
                          EXPECT_EQ(started, 1) << n << ": the other rules are there";
                          EXPECT_EQ(vc_list_count(quillfence_rules()), rule_count - 1) << n;
                          EXPECT_TRUE(tells_of_memory(log.errors(), "")) << n;
                      });
    EXPECT_EQ(vc_list_count(quillfence_rules()), rule_count);
}

TEST_F(memory_core, checks) {
    static const memory_case cases[] = {
        {"run_all_spam_checks", have_session<2>,
         [] { return run_all_spam_checks(it.state.get(), quillfence_rules(), &it.hits) == 1; },
         session_is_usable, goes_on, "Fail"},
        {"run_all_bms_checks", have_session<0>,
         [] { return run_all_bms_checks(it.state.get(), quillfence_rules(), &it.hits) == 1; },
         session_is_usable, goes_on, "Fail"},
        {"global_spam_hit_r", have_session<2>,
         [] { return global_spam_hit_r(it.state.get(), quillfence_rules()) == 1; },
         session_is_usable, goes_on},
        {"global_bms_r", have_session<0>,
         [] { return global_bms_r(it.state.get(), quillfence_rules()) == 1; }, session_is_usable,
         goes_on},
        {"global_rbl_r", have_session<0>,
         [] { return global_rbl_r(it.state.get(), quillfence_rules()) == 1; }, session_is_usable,
         goes_on, "Fail"},
        {"is_exempt", have_session<5>,
         [] { return is_exempt(it.state.get(), "c:/quillfence") == 1; }, session_is_usable,
         goes_on},
    };
    sweep(log, cases, release);
}

// A run without memory prints no report, or one that names nothing that is not so: it may miss
// hits whose rule or list there was no memory to ask, and the log says that it did.
TEST_F(memory_core, whole_run) {
    unsigned swept = 0;
    for (const client &who : clients) {
        SCOPED_TRACE(who.name);
        vc_json *whole = replay(who);
        ASSERT_NE(whole, nullptr);
        const std::set<std::string> all = hits_of(whole);
        vc_json_free(whole);
        log.errors();
        dns_script::asked();
        const long before = live_allocations();
        vc_json *report = nullptr;
        swept += sweep_allocations(
            [&] { report = replay(who); },
            [&](unsigned n) {
                EXPECT_FALSE(log.errors().empty()) << n;
                for (const std::string &hit : report ? hits_of(report) : std::set<std::string>()) {
                    EXPECT_TRUE(all.contains(hit)) << hit << " without memory, allocation " << n;
                }
                vc_json_free(report);
            });
        EXPECT_EQ(hits_of(report), all);
        vc_json_free(report);
        log.errors();
        log.take();
        dns_script::asked();
        EXPECT_EQ(live_allocations() - before, 0);
    }
    EXPECT_GT(swept, 300u);
}

} // namespace
} // namespace quillfence::testing
