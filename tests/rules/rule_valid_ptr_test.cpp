#include <cerrno>

#include "ptr_session.h"

namespace quillfence::testing {
namespace {

constexpr char rule[] = "rule_valid_ptr";

using valid_ptr = ptr_test;

TEST_F(valid_ptr, clients_that_cannot_be_judged) {
    EXPECT_EQ(rule_valid_ptr(nullptr), 0);
    EXPECT_EQ(rule_lines(log, rule), lines{"E " + std::string(std::strerror(EINVAL))});
    state->routable = 0;
    EXPECT_EQ(rule_valid_ptr(state), 0);
    EXPECT_EQ(rule_lines(log, rule), lines{"D IP address is not routable, skipping rule..."});
    session::put(&state->ip, nullptr);
    EXPECT_EQ(rule_valid_ptr(state), 0);
    EXPECT_EQ(rule_lines(log, rule), lines{"D no IP address found. Can't run test"});
    EXPECT_EQ(dns.asked().size(), 0u);
}

TEST_F(valid_ptr, cached_verdict_asks_nothing) {
    struct {
        uint32_t cache;
        lines want;
    } const cases[] = {
        {2, {"D cache shows PTR is NXDOMAIN"}},
        {3, {"D cache shows PTR is temporarily unavailable"}},
    };
    for (const auto &[cache, want] : cases) {
        state->rdns_resolves = cache;
        EXPECT_EQ(rule_valid_ptr(state), 0) << cache;
        EXPECT_EQ(rule_lines(log, rule), want);
    }
    EXPECT_EQ(dns.asked().size(), 0u);
}

TEST_F(valid_ptr, first_usable_name_is_shown) {
    struct {
        std::vector<std::string> names;
        uint8_t want;
        const char *rdns;
    } const cases[] = {
        {{"mail.example"}, 0, "mail.example"},
        {{"localhost.localdomain"}, 1, "(none)"},
        {{"LocalHost.LocalDomain"}, 1, "(none)"},
        {{"localhost.localdomain", "mail.example"}, 0, "mail.example"},
        {{"localhost"}, 1, "(none)"},
        {{"localhost.localdomain.example"}, 0, "localhost.localdomain.example"},
        {{"under_score.example", "192.0.2.1", "b.example", "a.example"}, 0, "b.example"},
        {{"under_score.example"}, 1, "(none)"},
        {{"ev\\.il.example"}, 1, "(none)"}, // a dot inside a label
        {{"", "a.example"}, 0, "a.example"},
        {{""}, 1, "(none)"},
        {{}, 1, "(none)"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.names.empty() ? "no list" : c.names[0]);
        state->rdns_resolves = 1;
        state.put_ptr_names(c.names);
        log.take();
        EXPECT_EQ(rule_valid_ptr(state), c.want);
        EXPECT_EQ(state.rdns(), c.rdns);
        EXPECT_EQ(rule_lines(log, rule), lines{});
    }
    EXPECT_EQ(dns.asked().size(), 0u);
}

TEST_F(valid_ptr, own_lookup) {
    struct {
        const char *name;
        uint32_t status;
        std::vector<dns_script::record> records;
        uint8_t want;
        uint32_t cache;
        lines want_lines;
    } const cases[] = {
        {"usable name", 0, {{12, "a.example"}}, 0, 1, {"D DNS lookup success. setting cache"}},
        {"no usable name", 0, {{12, "localhost"}}, 1, 1, {"D DNS lookup success. setting cache"}},
        {"failure", 9002, {}, 0, 0, {"D DNS lookup failure - skipping"}},
        {"no records", 9501, {}, 0, 0, {"D DNS lookup failure - skipping"}},
        // Not cached, and it fires: the list is empty.
        {"missing name", 9003, {}, 1, 0, {}},
        {"refused", 9005, {}, 1, 0, {}},
        {"aliases only", 0, {{5, ""}}, 1, 0, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        state->rdns_resolves = 0;
        state.put_ptr_names({});
        log.take();
        dns.answer(client_arpa, 12, c.status, c.records);
        EXPECT_EQ(rule_valid_ptr(state), c.want);
        EXPECT_EQ(rule_lines(log, rule), c.want_lines);
        EXPECT_EQ(state->rdns_resolves, c.cache);
    }
}

TEST_F(valid_ptr, invalid_argument_is_a_failure) {
    session::put(&state->ip, "");
    EXPECT_EQ(rule_valid_ptr(state), 0);
    EXPECT_EQ(log.errors(), lines{"vc_lookup_reverse_dns: " + std::string(std::strerror(EINVAL))});
    EXPECT_EQ(state->rdns_resolves, 0u);
}

int found_nothing(smtp_state *) {
    return 0;
}

TEST_F(valid_ptr, success_without_names_is_a_failure) {
    set_ptr_lookup_stand_in(found_nothing);
    EXPECT_EQ(rule_valid_ptr(state), 0);
    EXPECT_EQ(rule_lines(log, rule), lines{"D DNS lookup failure - skipping"});
    EXPECT_EQ(state->rdns_resolves, 0u);
}

// Kept on purpose: the same client fires this rule when it looks for itself, and not when the
// session already knows that there is no name.
TEST_F(valid_ptr, missing_name_fires_only_when_found_here) {
    EXPECT_EQ(rule_valid_ptr(state), 1);
    EXPECT_EQ(state->rdns_resolves, 0u);
    EXPECT_EQ(rule_valid_ptr(state), 1) << "asks again";
    EXPECT_EQ(dns.asked().size(), 2u);
    EXPECT_EQ(rule_check_ip_reverse_dns(state), 1);
    EXPECT_EQ(state->rdns_resolves, 2u);
    EXPECT_EQ(rule_valid_ptr(state), 0);
}

} // namespace
} // namespace quillfence::testing
