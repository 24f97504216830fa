#include <cerrno>

#include "ptr_session.h"

namespace quillfence::testing {
namespace {

constexpr char rule[] = "rule_check_ip_reverse_dns";

using ip_reverse_dns = ptr_test;

TEST_F(ip_reverse_dns, clients_that_cannot_be_judged) {
    EXPECT_EQ(rule_check_ip_reverse_dns(nullptr), 0);
    EXPECT_EQ(rule_lines(log, rule), lines{"E " + std::string(std::strerror(EINVAL))});
    state->routable = 0;
    state->rdns_resolves = 2;
    EXPECT_EQ(rule_check_ip_reverse_dns(state), 0);
    EXPECT_EQ(rule_lines(log, rule), lines{"D IP address is not routable, skipping rule..."});
    session::put(&state->ip, nullptr);
    EXPECT_EQ(rule_check_ip_reverse_dns(state), 0);
    EXPECT_EQ(rule_lines(log, rule), lines{"D no IP address found. Can't run test"});
    EXPECT_EQ(dns.asked().size(), 0u);
}

TEST_F(ip_reverse_dns, cached_verdict_asks_nothing) {
    struct {
        uint32_t cache;
        uint8_t want;
        const char *line;
    } const cases[] = {
        {1, 0, "D cache shows PTR resolves"},
        {2, 1, "D cache shows PTR is NXDOMAIN"},
        {3, 0, "D cache shows PTR is temporarily unavailable"},
    };
    for (const auto &[cache, want, line] : cases) {
        state->rdns_resolves = cache;
        EXPECT_EQ(rule_check_ip_reverse_dns(state), want) << cache;
        EXPECT_EQ(rule_lines(log, rule), lines{line});
        EXPECT_EQ(state->rdns_resolves, cache);
    }
    EXPECT_EQ(dns.asked().size(), 0u);
}

TEST_F(ip_reverse_dns, own_lookup) {
    struct {
        uint32_t status;
        std::vector<dns_script::record> records;
        uint8_t want;
        uint32_t cache;
        const char *line;
    } const cases[] = {
        {0, {{12, "host.example"}}, 0, 1, "D DNS lookup success. setting cache"},
        {9003, {}, 1, 2, "D DNS NXDOMAIN. setting cache"},
        {9005, {}, 1, 2, "D DNS NXDOMAIN. setting cache"},
        {0, {{5, ""}}, 1, 2, "D DNS NXDOMAIN. setting cache"},
        {9002, {}, 0, 3, "D DNS lookup failure - skipping"},
        {9501, {}, 0, 3, "D DNS lookup failure - skipping"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.status);
        state->rdns_resolves = 0;
        log.take();
        dns.answer(client_arpa, 12, c.status, c.records);
        EXPECT_EQ(rule_check_ip_reverse_dns(state), c.want);
        EXPECT_EQ(rule_lines(log, rule), lines{c.line});
        EXPECT_EQ(state->rdns_resolves, c.cache);
        dns.asked();
        EXPECT_EQ(rule_check_ip_reverse_dns(state), c.want) << "the cache says the same";
        EXPECT_EQ(dns.asked().size(), 0u);
    }
}

int found_nothing(smtp_state *) {
    return 0;
}

// Unlike in the rules that need the names.
TEST_F(ip_reverse_dns, success_without_names_is_a_success) {
    set_ptr_lookup_stand_in(found_nothing);
    EXPECT_EQ(rule_check_ip_reverse_dns(state), 0);
    EXPECT_EQ(rule_lines(log, rule), lines{"D DNS lookup success. setting cache"});
    EXPECT_EQ(state->rdns_resolves, 1u);
}

TEST_F(ip_reverse_dns, invalid_argument_is_a_failure) {
    session::put(&state->ip, "");
    EXPECT_EQ(rule_check_ip_reverse_dns(state), 0);
    EXPECT_EQ(log.errors(), lines{"vc_lookup_reverse_dns: " + std::string(std::strerror(EINVAL))});
    EXPECT_EQ(state->rdns_resolves, 3u);
}

} // namespace
} // namespace quillfence::testing
