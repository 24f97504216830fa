// What the tests of the rules that ask the DNS about a name have in common. Their names are all
// "mail.example"; what a rule finds out about one is kept in a cache of the session.
#pragma once

#include <string>
#include <vector>

#include "dns_script.h"
#include "failing_memory.h"
#include "rule_verdict.h"
#include "rules.h"

namespace quillfence::testing {

struct name_rule {
    const char *name;
    uint8_t (*check)(smtp_state *state);
    char *smtp_state::*field;      // the text in which the name stands
    uint32_t smtp_state::*verdict; // the cache
};

class name_rule_test : public traced_test {
  protected:
    explicit name_rule_test(const name_rule &rule) : rule_(rule) {
        put_dns_option(1);
        log.take();
    }
    // The rule's result for a field and a cache; what was logged and asked before is forgotten.
    uint8_t judge(const char *text, uint32_t cache = 0) {
        session::put(&(state->*rule_.field), text);
        state->*rule_.verdict = cache;
        log.take();
        dns.asked();
        return rule_.check(state);
    }
    lines said() {
        return rule_lines(log, rule_.name);
    }
    // The statuses of the three questions about mail.example.
    void answer(uint32_t a, uint32_t aaaa, uint32_t mx) {
        dns.answer("mail.example.", 1, a);
        dns.answer("mail.example.", 28, aaaa);
        dns.answer("mail.example.", 15, mx);
    }

    // --- what holds for each of these rules ---

    // A verdict in the cache is final, whatever the field holds.
    void expect_cached_verdicts(const std::vector<const char *> &texts) {
        for (const char *text : texts) {
            EXPECT_EQ(judge(text, 1), 0) << text;
            EXPECT_EQ(log.transcript(), lines{}) << text;
            EXPECT_EQ(judge(text, 2), 1) << text;
            EXPECT_EQ(log.transcript(), lines{}) << text;
            EXPECT_STREQ(state->*rule_.field, text) << "not even trimmed";
            EXPECT_EQ(dns.asked().size(), 0u) << text;
        }
    }
    // text holds the name; shown is what the rule's lines call it, as in "HELO [mail.example]".
    void expect_answers(const char *text, const std::string &shown) {
        const lines resolves = {"D " + shown + " resolves - setting flag"};
        const lines missing = {"D " + shown + " returns NXDOMAIN - setting flag"};
        const struct {
            const char *name;
            uint32_t a, aaaa, mx;
            uint8_t want;
            uint32_t cache;
            lines want_lines;
        } cases[] = {
            {"address", 0, 9003, 9003, 0, 1, resolves},
            {"IPv6 address", 9501, 0, 9501, 0, 1, resolves},
            {"mail exchanger", 9501, 9501, 0, 0, 1, resolves},
            {"missing", 9003, 9003, 9003, 1, 2, missing},
            {"refused", 9005, 9005, 9005, 1, 2, missing},
            {"failure", 9002, 9002, 9002, 0, 0, {}},
            {"no records", 9501, 9501, 9501, 0, 0, {}},
            {"mixed", 9003, 9003, 1460, 0, 0, {}},
        };
        for (const auto &c : cases) {
            SCOPED_TRACE(c.name);
            answer(c.a, c.aaaa, c.mx);
            EXPECT_EQ(judge(text), c.want);
            EXPECT_EQ(said(), c.want_lines);
            EXPECT_EQ(state->*rule_.verdict, c.cache);
            dns.asked();
            EXPECT_EQ(rule_.check(state), c.want);
            EXPECT_EQ(dns.asked().empty(), c.cache != 0) << "a failure is asked again";
        }
    }
    // Without memory for the question it is a lookup that failed.
    void expect_nothing_kept_without_memory(const char *text) {
        session::put(&(state->*rule_.field), text);
        uint8_t result = 1;
        const unsigned failed = sweep_allocations([&] { result = rule_.check(state); },
                                                  [&](unsigned n) {
                                                      EXPECT_EQ(result, 0) << n;
                                                      EXPECT_EQ(log.errors().size(), 1u) << n;
                                                      EXPECT_EQ(state->*rule_.verdict, 0u) << n;
                                                  });
        EXPECT_EQ(failed, 1u);
        EXPECT_EQ(state->*rule_.verdict, 2u);
    }
    void expect_dns_option_handed_on(const char *text) {
        for (const uint8_t option : {uint8_t{0}, uint8_t{1}}) {
            put_dns_option(option);
            judge(text);
            const auto asked = dns.asked();
            EXPECT_EQ(asked.size(), 3u);
            for (const dns_question &question : asked) {
                EXPECT_EQ(question.options, option ? 2u : 0u);
            }
        }
    }

    dns_script dns;
    session state;

  private:
    const name_rule rule_;
};

} // namespace quillfence::testing
