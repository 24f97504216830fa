#include "process_state.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "dns_script.h"
#include "failing_memory.h"
#include "hook_table.h"
#include "log_capture.h"
#include "owned_session.h"
#include "vc_nulltermlist.h"

namespace quillfence::testing {
namespace {

constexpr uint16_t type_ptr = 12;
constexpr char reverse_name[] = "1.2.0.192.in-addr.arpa.";

void set_dns_option(uint8_t option) {
    set_hooks({.dns_option = option});
}

class process_state_test : public logged_test {
  protected:
    void SetUp() override {
        set_dns_option(1);
    }
    void fill(const char *ip, const char *sender = "a@example.org") {
        state = session(ip);
        session::put(&state->mail_from, sender);
    }
    dns_script dns;
    session state;
};

TEST_F(process_state_test, bounces) {
    static const struct {
        const char *sender;
        bool bounce;
    } cases[] = {
        {nullptr, true},
        {"", true},
        {"(null)", true},
        {"(NULL)", true},
        {"(nULL)", true},
        {"<>", false},
        {" ", false},
        {"null", false},
        {"(null) ", false},
        {"a@b.org", false},
        {"bounce message", false},
    };
    for (const auto &c : cases) {
        fill("127.0.0.1", c.sender);
        EXPECT_EQ(__process_state(state), 1);
        EXPECT_EQ(state->ndr, c.bounce) << (c.sender ? c.sender : "(none)");
        EXPECT_STREQ(state->mail_from, c.bounce ? "bounce message" : c.sender);
    }
}

TEST_F(process_state_test, address_classes) {
    static const struct {
        const char *ip;
        int localhost, ipv6, routable;
    } cases[] = {
        {"127.0.0.1", 1, 0, 0},   {"::1", 1, 1, 0},          {"127.0.0.2", 0, 0, 0},
        {"10.0.0.1", 0, 0, 0},    {"172.31.255.1", 0, 0, 0}, {"192.168.1.1", 0, 0, 0},
        {"192.0.2.1", 0, 0, 1},   {"fe80::1", 0, 1, 0},      {"fc00::1", 0, 1, 0},
        {"2001:db8::1", 0, 1, 1},
    };
    for (const auto &c : cases) {
        fill(c.ip);
        EXPECT_EQ(__process_state(state), 1);
        EXPECT_EQ(state->localhost, c.localhost) << c.ip;
        EXPECT_EQ(state->ipv6, c.ipv6) << c.ip;
        EXPECT_EQ(state->routable, c.routable) << c.ip;
        EXPECT_EQ(dns.asked().size(), c.routable ? 1u : 0u) << c.ip;
        EXPECT_EQ(state->rdns_resolves, c.routable ? resolves_no : resolves_unknown) << c.ip;
        EXPECT_STREQ(state->base_dir, "c:/quillfence/");
    }
}

TEST_F(process_state_test, ptr_names_are_kept_and_the_first_is_the_name) {
    dns.ptr(reverse_name, {"one.example.org", "two.example.org"});
    fill("192.0.2.1");
    EXPECT_EQ(__process_state(state), 1);
    EXPECT_EQ(state->rdns_resolves, resolves_yes);
    ASSERT_EQ(vc_lstcount(state->ptr_results), 2u);
    EXPECT_STREQ(state->ptr_results[0], "one.example.org");
    EXPECT_STREQ(state->ptr_results[1], "two.example.org");
    EXPECT_EQ(state->rdns, state->ptr_results[0]);
}

TEST_F(process_state_test, outcomes_of_the_ptr_lookup) {
    static const struct {
        const char *name;
        uint32_t status;
        uint32_t want;
        size_t attempts;
    } cases[] = {
        {"NXDOMAIN", 9003, resolves_no, 1},
        {"refused", 9005, resolves_no, 1},
        {"server failure", 9002, resolves_tempfail, 3},
        {"no records", 9501, resolves_tempfail, 3},
        {"time-out", 1460, resolves_tempfail, 3},
        {"no PTR record in the answer", 0, resolves_no, 1},
    };
    for (const auto &c : cases) {
        dns.answer(reverse_name, type_ptr, c.status, {{5, ""}});
        fill("192.0.2.1");
        EXPECT_EQ(__process_state(state), 1) << c.name;
        EXPECT_EQ(state->rdns_resolves, c.want) << c.name;
        EXPECT_EQ(state->rdns, nullptr) << c.name;
        EXPECT_EQ(state->ptr_results, nullptr) << c.name;
        EXPECT_EQ(dns.asked().size(), c.attempts) << c.name;
    }
}

TEST_F(process_state_test, the_dns_option_is_handed_on) {
    static constexpr uint32_t tcp_only = 2;
    for (const uint8_t option : {uint8_t{0}, uint8_t{1}}) {
        set_dns_option(option);
        fill("192.0.2.1");
        EXPECT_EQ(__process_state(state), 1);
        const std::vector<dns_question> asked = dns.asked();
        ASSERT_EQ(asked.size(), 1u);
        EXPECT_EQ(asked[0].name, reverse_name);
        EXPECT_EQ(asked[0].type, type_ptr);
        EXPECT_EQ(asked[0].options, option ? tcp_only : 0u);
    }
}

// A text that is no address counts as routable; its names can't be asked, which is temporary.
TEST_F(process_state_test, garbage_for_an_address) {
    fill("garbage");
    EXPECT_EQ(__process_state(state), 1);
    EXPECT_EQ(state->routable, 1);
    EXPECT_EQ(state->rdns_resolves, resolves_tempfail);
    EXPECT_TRUE(dns.asked().empty());
    EXPECT_EQ(log.errors(),
              (lines{"vc_is_unroutable_ip: Address [garbage] is not a valid ipv4 or ipv6 address",
                     "vc_arpa: Address is not an IP"}));
}

// Nor is an address that is empty or absent one; the lookup refuses it, which is temporary, too.
TEST_F(process_state_test, no_address) {
    for (const char *ip : {"", static_cast<const char *>(nullptr)}) {
        fill("");
        if (!ip) {
            session::put(&state->ip, nullptr);
        }
        EXPECT_EQ(__process_state(state), 1);
        EXPECT_EQ(state->localhost, 0);
        EXPECT_EQ(state->ipv6, 0);
        EXPECT_EQ(state->routable, 1);
        EXPECT_EQ(state->rdns_resolves, resolves_tempfail);
        EXPECT_STREQ(state->base_dir, "c:/quillfence/");
        const lines errors = log.errors();
        ASSERT_FALSE(errors.empty());
        EXPECT_EQ(errors.back(), "vc_lookup_reverse_dns: Invalid argument");
    }
    EXPECT_TRUE(dns.asked().empty());
}

TEST_F(process_state_test, an_ndr_flag_stays) {
    for (const char *sender : {"a@example.org", ""}) {
        fill("127.0.0.1", sender);
        state->ndr = 1;
        EXPECT_EQ(__process_state(state), 1);
        EXPECT_EQ(state->ndr, 1);
        EXPECT_STREQ(state->mail_from, *sender ? sender : "bounce message");
    }
}

TEST_F(process_state_test, names_are_looked_up_once) {
    dns.ptr(reverse_name, {"one.example.org"});
    fill("192.0.2.1");
    for (const uint32_t known : {resolves_yes, resolves_no, resolves_tempfail}) {
        state->rdns_resolves = known;
        EXPECT_EQ(__process_state(state), 1);
        EXPECT_TRUE(dns.asked().empty());
        EXPECT_EQ(state->rdns_resolves, known);
    }

    fill("192.0.2.1");
    vc_lstcat(&state->ptr_results, strdup("known.example.org"));
    state->rdns = state->ptr_results[0];
    EXPECT_EQ(__process_state(state), 1);
    EXPECT_TRUE(dns.asked().empty());
    EXPECT_STREQ(state->rdns, "known.example.org");
    EXPECT_EQ(state->rdns_resolves, resolves_unknown);
}

TEST_F(process_state_test, an_earlier_base_directory_is_replaced) {
    fill("127.0.0.1");
    session::put(&state->base_dir, "c:/elsewhere/");
    EXPECT_EQ(__process_state(state), 1);
    EXPECT_STREQ(state->base_dir, "c:/quillfence/");
}

TEST_F(process_state_test, no_session) {
    EXPECT_EQ(__process_state(nullptr), 0);
    EXPECT_EQ(log.errors(), lines{});
}

// A lookup that fails for lack of memory is a temporary failure: the run goes on.
TEST_F(process_state_test, without_memory_for_the_names_the_run_goes_on) {
    dns.ptr(reverse_name, {"one.example.org"});
    int result = 0;
    unsigned went_on = 0;
    sweep_allocations(
        [&] {
            {
                const allocation_pause pause;
                fill("192.0.2.1");
            }
            result = __process_state(state);
        },
        [&](unsigned n) {
            EXPECT_FALSE(log.errors().empty()) << n;
            if (result) {
                ++went_on;
                EXPECT_EQ(state->rdns_resolves, resolves_tempfail) << n;
                EXPECT_EQ(state->rdns, nullptr) << n;
            } else {
                EXPECT_EQ(state->base_dir, nullptr) << n;
            }
        });
    EXPECT_GE(went_on, 2u); // the reverse name, the name
    EXPECT_EQ(result, 1);
    EXPECT_EQ(state->rdns_resolves, resolves_yes);
}

TEST_F(process_state_test, without_memory_the_run_stops) {
    int result = 1;
    const unsigned failures = sweep_allocations(
        [&] {
            {
                const allocation_pause pause;
                fill("127.0.0.1", "");
            }
            result = __process_state(state);
        },
        [&](unsigned n) {
            EXPECT_EQ(result, 0) << "allocation " << n;
            EXPECT_EQ(log.errors(), lines{std::string("__process_state: ") + strerror(ENOMEM)});
        });
    EXPECT_EQ(failures, 2u); // the sender and the base directory
    EXPECT_EQ(result, 1);
}

} // namespace
} // namespace quillfence::testing
