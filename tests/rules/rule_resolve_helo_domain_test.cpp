#include <cerrno>

#include "dns_script.h"
#include "failing_memory.h"
#include "hook_table.h"
#include "rules.h"
#include "session.h"

namespace quillfence::testing {
namespace {

constexpr char rule[] = "rule_resolve_helo_domain";

class resolve_helo_domain : public traced_test {
  protected:
    resolve_helo_domain() {
        set_option(1);
        log.take();
    }
    static void set_option(uint8_t option) {
        set_hooks(option, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                  nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    }
    uint8_t judge(const char *helo, uint32_t cache = 0) {
        session::put(&state->helo, helo);
        state->helo_resolves = cache;
        log.take();
        dns.asked();
        return rule_resolve_helo_domain(state);
    }
    void answer(uint32_t a, uint32_t aaaa, uint32_t mx) {
        dns.answer("mail.example.", 1, a);
        dns.answer("mail.example.", 28, aaaa);
        dns.answer("mail.example.", 15, mx);
    }
    dns_script dns;
    session state;
};

TEST_F(resolve_helo_domain, nothing_to_judge) {
    const lines want = {"E " + std::string(std::strerror(EINVAL))};
    EXPECT_EQ(rule_resolve_helo_domain(nullptr), 0);
    EXPECT_EQ(rule_lines(log, rule), want);
    EXPECT_EQ(judge(nullptr), 0);
    EXPECT_EQ(rule_lines(log, rule), want);
    EXPECT_EQ(judge(nullptr, 2), 0) << "the HELO is looked for before the cache";
    EXPECT_EQ(rule_lines(log, rule), want);
}

TEST_F(resolve_helo_domain, cached_verdict_asks_nothing) {
    for (const char *helo : {"mail.example", "no domain", ""}) {
        EXPECT_EQ(judge(helo, 1), 0);
        EXPECT_EQ(log.transcript(), lines{});
        EXPECT_EQ(judge(helo, 2), 1);
        EXPECT_EQ(log.transcript(), lines{});
        EXPECT_EQ(dns.asked().size(), 0u);
    }
}

TEST_F(resolve_helo_domain, invalid_names) {
    for (const char *helo : {"", "host", "[192.0.2.1]", "192.0.2.1", "a..b",
                             "localhost.localdomain", "localhost.l", "bad_name.example"}) {
        EXPECT_EQ(judge(helo), 1) << helo;
        EXPECT_EQ(rule_lines(log, rule), lines{"D HELO [" + std::string(helo) + "] is not valid"});
        EXPECT_EQ(state->helo_resolves, 0u);
        EXPECT_EQ(dns.asked().size(), 0u);
    }
}

TEST_F(resolve_helo_domain, answers) {
    struct {
        const char *name;
        uint32_t a, aaaa, mx;
        uint8_t want;
        uint32_t cache;
        lines want_lines;
    } const cases[] = {
        {"address", 0, 9003, 9003, 0, 1, {"D HELO [mail.example] resolves - setting flag"}},
        {"mail exchanger", 9501, 9501, 0, 0, 1, {"D HELO [mail.example] resolves - setting flag"}},
        {"missing",
         9003,
         9003,
         9003,
         1,
         2,
         {"D HELO [mail.example] returns NXDOMAIN - setting flag"}},
        {"refused",
         9005,
         9005,
         9005,
         1,
         2,
         {"D HELO [mail.example] returns NXDOMAIN - setting flag"}},
        {"failure", 9002, 9002, 9002, 0, 0, {}},
        {"no records", 9501, 9501, 9501, 0, 0, {}},
        {"mixed", 9003, 9003, 1460, 0, 0, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        answer(c.a, c.aaaa, c.mx);
        EXPECT_EQ(judge("mail.example"), c.want);
        EXPECT_EQ(rule_lines(log, rule), c.want_lines);
        EXPECT_EQ(state->helo_resolves, c.cache);
        dns.asked();
        EXPECT_EQ(rule_resolve_helo_domain(state), c.want);
        EXPECT_EQ(dns.asked().empty(), c.cache != 0) << "a failure is asked again";
    }
}

TEST_F(resolve_helo_domain, blanks_are_trimmed_for_good) {
    answer(0, 0, 0);
    EXPECT_EQ(judge("  mail.example "), 0);
    EXPECT_STREQ(state->helo, "mail.example");
    EXPECT_EQ(rule_lines(log, rule), lines{"D HELO [mail.example] resolves - setting flag"});
}

TEST_F(resolve_helo_domain, without_memory_nothing_is_kept) {
    session::put(&state->helo, "mail.example");
    uint8_t result = 1;
    const unsigned failed = sweep_allocations([&] { result = rule_resolve_helo_domain(state); },
                                              [&](unsigned n) {
                                                  EXPECT_EQ(result, 0) << n;
                                                  EXPECT_EQ(log.errors().size(), 1u) << n;
                                                  EXPECT_EQ(state->helo_resolves, 0u) << n;
                                              });
    EXPECT_EQ(failed, 1u);
    EXPECT_EQ(state->helo_resolves, 2u);
}

TEST_F(resolve_helo_domain, hands_the_dns_option_on) {
    for (const uint8_t option : {uint8_t{0}, uint8_t{1}}) {
        set_option(option);
        judge("mail.example");
        for (const dns_question &question : dns.asked()) {
            EXPECT_EQ(question.options, option ? 2u : 0u);
        }
    }
}

} // namespace
} // namespace quillfence::testing
