// What the four rules over lists of names do before their own test, and the three hook rules.
#include "reverse_dns.h"

#include <cerrno>

#include "failing_memory.h"
#include "ptr_session.h"

namespace quillfence::testing {
namespace {

const std::string einval = std::strerror(EINVAL);

struct name_rule {
    const char *name;
    uint8_t (*check)(smtp_state *state);
    const char *no_names_line;
};

constexpr name_rule rules[] = {
    {"rule_check_dynamic_reverse_dns_default", rule_check_dynamic_reverse_dns_default,
     "DNS lookup failure - skipping"},
    {"rule_check_dynamic_reverse_dns", rule_check_dynamic_reverse_dns,
     "DNS lookup failure - skipping"},
    {"rule_check_reverse_dns_list", rule_check_reverse_dns_list, "DNS lookupo failure - skipping"},
    {"rule_check_confirmed_dyna", rule_check_confirmed_dyna, "DNS lookup failure - skipping"},
};

int hook_calls;

uint8_t listing_hook(smtp_state *) {
    ++hook_calls;
    return 1;
}
uint8_t passing_hook(smtp_state *) {
    ++hook_calls;
    return 0;
}

// Every rule's own test says 1 for this name.
const std::vector<std::string> listed_name = {"1-2-3-4.pool.example"};

class reverse_dns : public ptr_test {
  protected:
    reverse_dns() {
        put_hooks(listing_hook, listing_hook, listing_hook);
        hook_calls = 0;
    }
    void reset(uint32_t cache) {
        state->rdns_resolves = cache;
        state.put_ptr_names({});
        log.take();
        dns.asked();
    }
};

// The tests of each rule; they run under its name.
class name_rule_test : public reverse_dns, public ::testing::WithParamInterface<name_rule> {
  protected:
    const name_rule &rule = GetParam();
};

INSTANTIATE_TEST_SUITE_P(each, name_rule_test, ::testing::ValuesIn(rules),
                         [](const auto &made) { return std::string(made.param.name); });

TEST_P(name_rule_test, no_session) {
    EXPECT_EQ(rule.check(nullptr), 0);
    EXPECT_EQ(rule_lines(log, rule.name), lines{"E " + einval});
}

TEST_P(name_rule_test, clients_that_cannot_be_judged) {
    SCOPED_TRACE(rule.name);
    reset(1);
    state.put_ptr_names(listed_name);
    log.take();

    state->routable = 0;
    EXPECT_EQ(rule.check(state), 0);
    EXPECT_EQ(rule_lines(log, rule.name), lines{"D IP address is not routable, skipping rule..."});
    session::put(&state->ip, nullptr);
    EXPECT_EQ(rule.check(state), 0);
    EXPECT_EQ(rule_lines(log, rule.name), lines{"D no IP address found. Can't run test"});
    session::put(&state->ip, "192.0.2.1");
    state->routable = 1;
    EXPECT_EQ(dns.asked().size(), 0u);
    EXPECT_EQ(hook_calls, 0);
}

TEST_P(name_rule_test, non_routable_client_is_not_looked_up) {
    session::put(&state->ip, "10.0.0.1");
    state->routable = 0;
    EXPECT_EQ(rule.check(state), 0) << rule.name;
    EXPECT_EQ(dns.asked().size(), 0u);
    EXPECT_EQ(state->rdns_resolves, 0u);
}

TEST_P(name_rule_test, cached_verdict_asks_nothing) {
    struct {
        uint32_t cache;
        bool names;
        const char *line;
        uint8_t want;
    } const cases[] = {
        {1, true, nullptr, 1},
        {1, false, "D cache shows DNS lookup error. Skipping test", 0},
        {2, true, "D cache shows PTR is NXDOMAIN. Can't run test", 0},
        {2, false, "D cache shows PTR is NXDOMAIN. Can't run test", 0},
        {3, true, "D cache shows PTR is temporarily unavailable", 0},
        {3, false, "D cache shows PTR is temporarily unavailable", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(rule.name) + ", cache " + std::to_string(c.cache));
        reset(c.cache);
        state.put_ptr_names(c.names ? listed_name : lines{});
        log.take();
        EXPECT_EQ(rule.check(state), c.want);
        EXPECT_EQ(rule_lines(log, rule.name), c.line ? lines{c.line} : lines{});
        EXPECT_EQ(state->rdns_resolves, c.cache);
        EXPECT_EQ(dns.asked().size(), 0u);
    }
}

TEST_P(name_rule_test, lookup_moves_the_cache) {
    struct {
        const char *name;
        uint32_t status;
        std::vector<dns_script::record> records;
        uint32_t cache;
        const char *line;
        uint8_t want;
        size_t questions;
    } const cases[] = {
        {"names", 0, {{12, listed_name[0]}}, 1, "D DNS lookup success. setting cache", 1, 1},
        {"missing name", 9003, {}, 2, "D DNS NXDOMAIN. setting cache", 0, 1},
        {"refused", 9005, {}, 2, "D DNS NXDOMAIN. setting cache", 0, 1},
        {"aliases only", 0, {{5, ""}}, 2, "D DNS NXDOMAIN. setting cache", 0, 1},
        {"failure", 9002, {}, 3, "D DNS lookup failure - skipping", 0, 3},
        {"no records", 9501, {}, 3, "D DNS lookup failure - skipping", 0, 3},
        {"time-out", 1460, {}, 3, "D DNS lookup failure - skipping", 0, 3},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(rule.name) + ", " + c.name);
        reset(0);
        dns.answer(client_arpa, 12, c.status, c.records);
        EXPECT_EQ(rule.check(state), c.want);
        EXPECT_EQ(rule_lines(log, rule.name), lines{c.line});
        EXPECT_EQ(state->rdns_resolves, c.cache);
        const auto asked = dns.asked();
        ASSERT_EQ(asked.size(), c.questions);
        EXPECT_EQ(asked[0].options, 2u) << "the hook table's DNS option is handed on";
        // The second run asks nothing.
        rule.check(state);
        EXPECT_EQ(dns.asked().size(), 0u);
    }
}

TEST_F(reverse_dns, all_names_are_looked_up) {
    dns.ptr(client_arpa, {"1-2-3-4.a.example", "1-2-3-4.b.example"});
    EXPECT_EQ(rule_check_dynamic_reverse_dns_default(state), 1);
    EXPECT_EQ(state.ptr_names(), (lines{"1-2-3-4.a.example", "1-2-3-4.b.example"}));
}

TEST_P(name_rule_test, client_that_is_no_address) {
    struct {
        const char *ip;
        lines want;
    } const cases[] = {
        {"garbage", {"vc_arpa: Address is not an IP"}},
        {"", {"vc_lookup_reverse_dns: " + einval}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(rule.name) + ", ip [" + c.ip + "]");
        reset(0);
        session::put(&state->ip, c.ip);
        EXPECT_EQ(rule.check(state), 0);
        EXPECT_EQ(log.errors(), c.want);
        EXPECT_EQ(state->rdns_resolves, 3u);
    }
    EXPECT_EQ(dns.asked().size(), 0u);
}

int found_nothing(smtp_state *) {
    return 0;
}

TEST_P(name_rule_test, success_without_names_is_a_failure) {
    reset(0);
    set_ptr_lookup_stand_in(found_nothing);
    EXPECT_EQ(rule.check(state), 0);
    EXPECT_EQ(rule_lines(log, rule.name), lines{"D " + std::string(rule.no_names_line)});
    EXPECT_EQ(state->rdns_resolves, 3u);
    EXPECT_EQ(hook_calls, 0);
}

int invalid_argument(smtp_state *) {
    return -2;
}

// The rule with the misspelt line for an empty answer spells the one for a failure right.
TEST_P(name_rule_test, failure_line_is_the_same_everywhere) {
    reset(0);
    set_ptr_lookup_stand_in(invalid_argument);
    EXPECT_EQ(rule.check(state), 0);
    EXPECT_EQ(rule_lines(log, rule.name), lines{"D DNS lookup failure - skipping"});
    EXPECT_EQ(state->rdns_resolves, 3u);
}

// Without memory for the lookup it is one that failed; nothing fires.
TEST_P(name_rule_test, without_memory) {
    SCOPED_TRACE(rule.name);
    reset(0);
    dns.ptr(client_arpa, listed_name);
    uint8_t result = 1;
    const unsigned failed =
        sweep_allocations([&] { result = rule.check(state); },
                          [&](unsigned n) {
                              EXPECT_EQ(result, 0) << n;
                              EXPECT_EQ(log.errors().size(), 1u) << n;
                              EXPECT_EQ(state->rdns_resolves == 3, state.ptr_names().empty()) << n;
                              reset(0);
                          });
    EXPECT_GE(failed, 3u);
    EXPECT_EQ(result, 1);
}

// --- the three rules that ask a hook ---

constexpr session_hook no_hook = nullptr;

TEST_F(reverse_dns, each_rule_asks_its_own_hook) {
    struct {
        uint8_t (*check)(smtp_state *state);
        session_hook dynamic, spam, confirmed;
        uint8_t want;
        int calls;
    } const cases[] = {
        {rule_check_dynamic_reverse_dns, listing_hook, no_hook, no_hook, 1, 1},
        {rule_check_dynamic_reverse_dns, passing_hook, listing_hook, listing_hook, 0, 1},
        {rule_check_dynamic_reverse_dns, no_hook, listing_hook, listing_hook, 0, 0},
        {rule_check_reverse_dns_list, no_hook, listing_hook, no_hook, 1, 1},
        {rule_check_reverse_dns_list, listing_hook, passing_hook, listing_hook, 0, 1},
        {rule_check_reverse_dns_list, listing_hook, no_hook, listing_hook, 0, 0},
        {rule_check_confirmed_dyna, no_hook, no_hook, listing_hook, 1, 1},
        {rule_check_confirmed_dyna, listing_hook, listing_hook, passing_hook, 0, 1},
        {rule_check_confirmed_dyna, listing_hook, listing_hook, no_hook, 0, 0},
    };
    int row = 0;
    for (const auto &c : cases) {
        SCOPED_TRACE(++row);
        reset(1);
        state.put_ptr_names({"host.example"});
        put_hooks(c.dynamic, c.spam, c.confirmed);
        hook_calls = 0;
        EXPECT_EQ(c.check(state), c.want);
        EXPECT_EQ(hook_calls, c.calls);
    }
}

uint8_t recording_hook(smtp_state *state) {
    state->rdns = state->ptr_results[0];
    return 0;
}

TEST_F(reverse_dns, hook_gets_the_session) {
    reset(1);
    state.put_ptr_names({"host.example"});
    put_hooks(recording_hook, nullptr, nullptr);
    EXPECT_EQ(rule_check_dynamic_reverse_dns(state), 0);
    EXPECT_EQ(state.rdns(), "host.example");
}

TEST_F(reverse_dns, lookup_forgets_the_old_name) {
    reset(0);
    state.put_ptr_names({"old.example"});
    state->rdns = state->ptr_results[0];
    dns.ptr(client_arpa, {"new.example"});
    EXPECT_EQ(rule_check_confirmed_dyna(state), 1);
    EXPECT_EQ(state.rdns(), "(none)");
    EXPECT_EQ(state.ptr_names(), lines{"new.example"});
}

// The number in a line is that of the rule's own source, whose helpers these are.
TEST_F(reverse_dns, lines_come_from_the_place_of_the_rule) {
    const log_place place = {"some_rule", "its file", 77};
    state->rdns_resolves = resolves_no;
    log.take();
    EXPECT_FALSE(reach_ptr_names(place, state));
    state->routable = 0;
    EXPECT_FALSE(has_routable_client(place, state));
    const std::vector<log_line> all = log.take();
    ASSERT_EQ(all.size(), 2u);
    for (const log_line &line : all) {
        EXPECT_EQ(line.function + ", " + line.source, "some_rule, its file") << line.message;
        EXPECT_EQ(line.line, 77) << line.message;
    }
}

} // namespace
} // namespace quillfence::testing
