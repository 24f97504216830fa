// Every rule when memory runs out: it says so, never hits for lack of memory, and what it keeps in
// the session can be used and released.
#include "engine_test.h"
#include "memory_sweep.h"
#include "platform/process.h"
#include "quillfence.h"
#include "rbl_host_lookup.h"
#include "rules.h"
#include "vcspamrule.h"

namespace quillfence::testing {
namespace {

class memory_rules : public engine_test {
  protected:
    static owned_session complete(const client &who) {
        owned_session state = session_of(who);
        state->base_dir = heap_text(quillfence_base_dir);
        state->routable = 1;
        return state;
    }
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
            const uint8_t with_memory = row.check(complete(who).get());
            log.take();
            owned_session state;
            swept += sweep_allocations(
                [&] {
                    {
                        const allocation_pause pause;
                        state = complete(who);
                        log.take();
                    }
                    row.check(state.get());
                },
                [&](unsigned n) {
                    SCOPED_TRACE(n);
                    EXPECT_FALSE(log.errors().empty());
                    {
                        EXPECT_NE(state->ip, nullptr);
                        EXPECT_NE(state->mail_from, nullptr);
                    }
                    // Asked again with memory, the same session gives the same answer, unless the
                    // failure is kept in the PTR cache: then nothing hits.
                    const uint8_t again = row.check(state.get());
                    EXPECT_TRUE(again == with_memory || again == 0) << int{again};
                });
            state.reset();
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
            const uint8_t with_memory = row.check(complete(who).get());
            owned_session state;
            uint8_t hit = 0;
            sweep_allocations(
                [&] {
                    {
                        const allocation_pause pause;
                        state = complete(who);
                    }
                    hit = row.check(state.get());
                },
                [&](unsigned n) { EXPECT_LE(hit, with_memory) << n; });
            state.reset();
            log.take();
        }
    }
}

TEST_F(memory_rules, block_lists_of_the_dns) {
    dns.answer("1.2.0.192.rbl.example.", platform::dns_type_a, 0, {{platform::dns_type_a, ""}});
    static owned_session state;
    static char *name;
    state = complete(clients[0]);
    dns_script::asked();
    // Its texts for a lack of memory all begin with "Fail".
    static const memory_case cases[] = {
        {"quillfence_rbl_host", nullptr,
         [] { return (name = quillfence_rbl_host(state.get(), "rbl.example")) != nullptr; },
         nullptr, without_memory::fails, "Fail"},
        {"is_rbl_hit", nullptr, [] { return is_rbl_hit(state.get(), "rbl.example") == 1; }, nullptr,
         without_memory::fails, "Fail"},
    };
    sweep(log, cases, [] {
        dns_script::asked();
        free(name);
        name = nullptr;
    });
    state.reset();
}

} // namespace
} // namespace quillfence::testing
