// Every rule when memory runs out: it says so, never hits for lack of memory, and what it keeps in
// the session can be used and released.
#include "engine_drive.h"
#include "memory_sweep.h"
#include "platform/process.h"
#include "quillfence.h"
#include "rbl_host_lookup.h"
#include "rules.h"
#include "vcspamrule.h"

namespace quillfence::testing {
namespace {

class memory_rules : public drive_test {
  protected:
    memory_rules() {
        write_configuration(drive);
        write_zones(&dns);
        quillfence_init();
    }
    ~memory_rules() override {
        quillfence_teardown();
    }
    static smtp_state *complete(const client &who) {
        smtp_state *state = session_of(who);
        state->base_dir = heap_text(quillfence_base_dir);
        state->routable = 1;
        return state;
    }
    dns_script dns;
};

// Whitelists that can't be read exempt nobody; that is told in docs/security.md, too.
TEST_F(memory_rules, a_session_can_be_asked_again) {
    unsigned swept = 0;
    for (const rule_row &row : rule_rows()) {
        for (const client &who : clients) {
            if (!row.check) {
                continue;
            }
            SCOPED_TRACE(std::string(row.name) + ", " + who.name);
            dns_script::asked();
            const long before = live_allocations();
            smtp_state *whole = complete(who);
            const uint8_t with_memory = row.check(whole);
            free_smtp_state(whole);
            log.take();
            smtp_state *state = nullptr;
            swept += sweep_allocations(
                [&] {
                    {
                        const allocation_pause pause;
                        free_smtp_state(state);
                        state = complete(who);
                        log.take();
                    }
                    row.check(state);
                },
                [&](unsigned n) {
                    SCOPED_TRACE(n);
                    EXPECT_FALSE(log.errors().empty());
                    {
                        const smtp_state *judged = state;
                        EXPECT_NE(judged->ip, nullptr);
                        EXPECT_NE(judged->mail_from, nullptr);
                    }
                    // Asked again with memory, the same session gives the same answer, unless the
                    // failure is kept in the PTR cache: then nothing hits.
                    const uint8_t again = row.check(state);
                    EXPECT_TRUE(again == with_memory || again == 0) << int{again};
                });
            free_smtp_state(state);
            log.take();
            dns_script::asked();
            EXPECT_EQ(live_allocations() - before, 0);
        }
    }
    EXPECT_GT(swept, 100u);
}

TEST_F(memory_rules, a_result_without_memory_is_no_or_the_true_one) {
    for (const rule_row &row : rule_rows()) {
        for (const client &who : clients) {
            if (!row.check) {
                continue;
            }
            SCOPED_TRACE(std::string(row.name) + ", " + who.name);
            smtp_state *whole = complete(who);
            const uint8_t with_memory = row.check(whole);
            free_smtp_state(whole);
            smtp_state *state = nullptr;
            uint8_t hit = 0;
            sweep_allocations(
                [&] {
                    {
                        const allocation_pause pause;
                        free_smtp_state(state);
                        state = complete(who);
                    }
                    hit = row.check(state);
                },
                [&](unsigned n) { EXPECT_LE(hit, with_memory) << n; });
            free_smtp_state(state);
            log.take();
        }
    }
}

TEST_F(memory_rules, block_lists_of_the_dns) {
    dns.answer("1.2.0.192.rbl.example.", platform::dns_type_a, 0, {{platform::dns_type_a, ""}});
    static smtp_state *state;
    static char *name;
    state = complete(clients[0]);
    dns_script::asked();
    // Its texts for a lack of memory all begin with "Fail".
    static const memory_case cases[] = {
        {"quillfence_rbl_host", nullptr,
         [] { return (name = quillfence_rbl_host(state, "rbl.example")) != nullptr; }, nullptr,
         without_memory::fails, "Fail"},
        {"is_rbl_hit", nullptr, [] { return is_rbl_hit(state, "rbl.example") == 1; }, nullptr,
         without_memory::fails, "Fail"},
    };
    sweep(log, cases, [] {
        dns_script::asked();
        free(name);
        name = nullptr;
    });
    free_smtp_state(state);
}

} // namespace
} // namespace quillfence::testing
