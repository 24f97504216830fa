#include <cerrno>

#include "dns_script.h"
#include "failing_memory.h"
#include "hook_table.h"
#include "rules.h"
#include "session.h"

namespace quillfence::testing {
namespace {

constexpr char rule[] = "rule_valid_from_domain";

class valid_from_domain : public traced_test {
  protected:
    valid_from_domain() {
        set_option(1);
        log.take();
    }
    static void set_option(uint8_t option) {
        set_hooks(option, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                  nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    }
    uint8_t judge(const char *sender, uint32_t cache = 0) {
        session::put(&state->mail_from, sender);
        state->mail_resolves = cache;
        log.take();
        dns.asked();
        return rule_valid_from_domain(state);
    }
    void answer(uint32_t a, uint32_t aaaa, uint32_t mx) {
        dns.answer("mail.example.", 1, a);
        dns.answer("mail.example.", 28, aaaa);
        dns.answer("mail.example.", 15, mx);
    }
    dns_script dns;
    session state;
};

TEST_F(valid_from_domain, nothing_to_judge) {
    const lines want = {"E " + std::string(std::strerror(EINVAL))};
    EXPECT_EQ(rule_valid_from_domain(nullptr), 0);
    EXPECT_EQ(rule_lines(log, rule), want);
    EXPECT_EQ(judge(nullptr), 0);
    EXPECT_EQ(rule_lines(log, rule), want);
}

TEST_F(valid_from_domain, cached_verdict_asks_nothing) {
    for (const char *sender : {"u@mail.example", " no domain ", ""}) {
        EXPECT_EQ(judge(sender, 1), 0);
        EXPECT_EQ(log.transcript(), lines{});
        EXPECT_EQ(judge(sender, 2), 1);
        EXPECT_EQ(log.transcript(), lines{});
        EXPECT_STREQ(state->mail_from, sender) << "not even trimmed";
        EXPECT_EQ(dns.asked().size(), 0u);
    }
}

TEST_F(valid_from_domain, senders_without_a_domain) {
    for (const char *sender : {"", "bounce message", "user"}) {
        EXPECT_EQ(judge(sender), 1) << sender;
        EXPECT_EQ(rule_lines(log, rule),
                  lines{"D address [" + std::string(sender) + "] does not contain '@' symbol"});
        EXPECT_EQ(state->mail_resolves, 0u);
    }
    for (const char *domain : {"host", "a..b", "[192.0.2.1]", "b@mail.example", "mail.example."}) {
        EXPECT_EQ(judge(("u@" + std::string(domain)).c_str()), 1) << domain;
        EXPECT_EQ(rule_lines(log, rule),
                  lines{"D domain [" + std::string(domain) + "] flagged as invalid"});
        EXPECT_EQ(state->mail_resolves, 0u);
    }
    EXPECT_EQ(dns.asked().size(), 0u);
}

TEST_F(valid_from_domain, nothing_behind_the_at_sign) {
    EXPECT_EQ(judge("u@"), 1);
    EXPECT_EQ(log.errors(), lines{"vc_is_ip: " + std::string(std::strerror(EINVAL))});
    EXPECT_EQ(state->mail_resolves, 0u);
}

TEST_F(valid_from_domain, address_as_domain_counts_as_resolving) {
    for (const char *sender : {"u@192.0.2.1", "u@2001:db8::1"}) {
        EXPECT_EQ(judge(sender), 0) << sender;
        EXPECT_EQ(rule_lines(log, rule), lines{});
        EXPECT_EQ(state->mail_resolves, 1u);
        EXPECT_EQ(dns.asked().size(), 0u);
    }
}

TEST_F(valid_from_domain, answers) {
    const std::string resolves = "D address [u@mail.example] resolves - setting flag";
    const std::string missing = "D address [u@mail.example] returns NXDOMAIN - setting flag";
    struct {
        const char *name;
        uint32_t a, aaaa, mx;
        uint8_t want;
        uint32_t cache;
        lines want_lines;
    } const cases[] = {
        {"address", 0, 9003, 9003, 0, 1, {resolves}},
        {"mail exchanger", 9501, 9501, 0, 0, 1, {resolves}},
        {"missing", 9003, 9003, 9003, 1, 2, {missing}},
        {"refused", 9005, 9005, 9005, 1, 2, {missing}},
        {"failure", 9002, 9002, 9002, 0, 0, {}},
        {"no records", 9501, 9501, 9501, 0, 0, {}},
        {"mixed", 9003, 9003, 1460, 0, 0, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        answer(c.a, c.aaaa, c.mx);
        EXPECT_EQ(judge("u@mail.example"), c.want);
        EXPECT_EQ(rule_lines(log, rule), c.want_lines);
        EXPECT_EQ(state->mail_resolves, c.cache);
        dns.asked();
        EXPECT_EQ(rule_valid_from_domain(state), c.want);
        EXPECT_EQ(dns.asked().empty(), c.cache != 0) << "a failure is asked again";
    }
}

TEST_F(valid_from_domain, blanks_are_trimmed_for_good) {
    answer(0, 0, 0);
    for (const char *sender : {" u@mail.example", "u@mail.example ", " \tu@mail.example\r\n"}) {
        EXPECT_EQ(judge(sender), 0) << sender;
        EXPECT_STREQ(state->mail_from, "u@mail.example");
    }
    // Only a blank starts it.
    EXPECT_EQ(judge("\tu@mail.example\t"), 1);
    EXPECT_STREQ(state->mail_from, "\tu@mail.example\t");
}

TEST_F(valid_from_domain, without_memory_nothing_is_kept) {
    session::put(&state->mail_from, "u@mail.example");
    uint8_t result = 1;
    const unsigned failed = sweep_allocations([&] { result = rule_valid_from_domain(state); },
                                              [&](unsigned n) {
                                                  EXPECT_EQ(result, 0) << n;
                                                  EXPECT_EQ(log.errors().size(), 1u) << n;
                                                  EXPECT_EQ(state->mail_resolves, 0u) << n;
                                              });
    EXPECT_EQ(failed, 1u);
    EXPECT_EQ(state->mail_resolves, 2u);
}

TEST_F(valid_from_domain, hands_the_dns_option_on) {
    for (const uint8_t option : {uint8_t{0}, uint8_t{1}}) {
        set_option(option);
        judge("u@mail.example");
        for (const dns_question &question : dns.asked()) {
            EXPECT_EQ(question.options, option ? 2u : 0u);
        }
    }
}

} // namespace
} // namespace quillfence::testing
