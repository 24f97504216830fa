#include "rbl_host_lookup.h"

#include "dns_script.h"
#include "failing_memory.h"
#include "rule_verdict.h"

namespace quillfence::testing {
namespace {

class rbl_host_lookup : public traced_test {
  protected:
    rbl_host_lookup() {
        put_dns_option(1);
        put_ip("192.0.2.1");
    }
    void put_ip(const char *ip) {
        session::put(&state->ip, ip);
        log.take();
    }
    std::string host(const char *zone) {
        char *name = quillfence_rbl_host(state, zone);
        const std::string text = name ? name : "(null)";
        free(name);
        return text;
    }
    lines questions() {
        lines texts;
        for (const dns_question &question : dns.asked()) {
            EXPECT_EQ(question.options, 2u);
            texts.push_back(question.name + " " + std::to_string(question.type));
        }
        return texts;
    }
    dns_script dns;
    session state;
};

TEST_F(rbl_host_lookup, query_names) {
    struct {
        const char *ip, *zone, *want;
    } const cases[] = {
        {"192.0.2.1", "zone.example", "1.2.0.192.zone.example."},
        {"10.1.2.3", "Z", "3.2.1.10.Z."},
        {"255.255.255.255", "z.", "255.255.255.255.z.."},
        {"a.b.c.d", "z", "d.c.b.a.z."},             // parts are taken as they are
        {"1234.5678.9.10", "z", "10.9.567.123.z."}, // three characters of each
    };
    for (const auto &[ip, zone, want] : cases) {
        put_ip(ip);
        EXPECT_EQ(host(zone), want);
    }
}

TEST_F(rbl_host_lookup, names_that_cannot_be_formed) {
    struct {
        const char *ip, *zone, *line;
    } const cases[] = {
        {nullptr, "z", "Provided state does not have a valid IP address"},
        {"", "z", "Provided state does not have a valid IP address"},
        {"192.0.2.1", nullptr, "Provided RBL list is not valid"},
        {"192.0.2.1", "", "Provided RBL list is not valid"},
        {"", "", "Provided state does not have a valid IP address"},
        {"2001:db8::1", "z", "Failed to parse ip address for octets"},
        {"192.0.2", "z", "Failed to parse ip address for octets"},
        {"192.0.2.1.5", "z", "Failed to parse ip address for octets"},
        {"192.0.2.1.", "z", "Failed to parse ip address for octets"},
        {"::ffff:192.0.2.1", "", "Provided RBL list is not valid"},
        {"192..2.1", "z", "Failed to parse ip address into octets"},
        {"192.0.2.", "z", "Failed to parse ip address into octets"},
        {"...", "z", "Failed to parse ip address into octets"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.ip ? c.ip : "null");
        put_ip(c.ip);
        EXPECT_EQ(host(c.zone), "(null)");
        EXPECT_EQ(log.errors(), lines{"quillfence_rbl_host: " + std::string(c.line)});
    }
    EXPECT_EQ(quillfence_rbl_host(nullptr, "z"), nullptr);
    EXPECT_EQ(log.errors(),
              lines{"quillfence_rbl_host: Provided state does not have a valid IP address"});
}

// The last line is this module's own; the one before it, where there is one, tells where.
TEST_F(rbl_host_lookup, without_memory) {
    const std::string copy = "quillfence_rbl_host: Failed to copy IP Address string";
    const std::string parse = "quillfence_rbl_host: Failed to parse ip address for octets";
    const std::string reverse = "quillfence_rbl_host: Failed reversing IP address";
    const std::string generate = "quillfence_rbl_host: Failed generating rbl lookup string";
    lines want = {copy};
    want.insert(want.end(), 8, parse);   // four pieces with a node each
    want.insert(want.end(), 8, reverse); // four pieces with a dot each
    want.insert(want.end(), 2, generate);
    char *name = nullptr;
    const unsigned failed = sweep_allocations([&] { name = quillfence_rbl_host(state, "z"); },
                                              [&](unsigned n) {
                                                  EXPECT_EQ(name, nullptr) << n;
                                                  EXPECT_EQ(log.errors().back(), want.at(n - 1))
                                                      << n;
                                              });
    EXPECT_EQ(failed, want.size());
    EXPECT_STREQ(name, "1.2.0.192.z.");
    free(name);

    int hit = 1;
    sweep_allocations([&] { hit = is_rbl_hit(state, "z"); },
                      [&](unsigned n) {
                          EXPECT_EQ(hit, 0) << n;
                          EXPECT_EQ(log.errors().back(),
                                    "is_rbl_hit: Failure generating RBL host string");
                      });
    EXPECT_EQ(questions().size(), 2u) << "only the last run asked";
}

TEST_F(rbl_host_lookup, lines_name_the_module) {
    host("");
    const auto taken = log.take();
    ASSERT_EQ(taken.size(), 1u);
    EXPECT_EQ(taken[0].source, "rbl_host_lookup");
}

TEST_F(rbl_host_lookup, any_address_record_is_a_hit) {
    struct {
        uint32_t a, aaaa;
        int want;
    } const cases[] = {
        {0, 9003, 1},    {9003, 0, 1},    {9002, 0, 1},    {9003, 9003, 0},
        {9005, 9005, 0}, {9002, 9002, 0}, {1460, 1460, 0}, {9501, 9501, 0},
    };
    for (const auto &[a, aaaa, want] : cases) {
        SCOPED_TRACE(std::to_string(a) + " and " + std::to_string(aaaa));
        dns.answer("1.2.0.192.zone.example.", 1, a);
        dns.answer("1.2.0.192.zone.example.", 28, aaaa);
        EXPECT_EQ(is_rbl_hit(state, "zone.example"), want);
        lines own;
        for (const std::string &line : log.transcript()) {
            if (line.find(" is_rbl_hit: ") == 1) {
                own.push_back(line);
            }
        }
        EXPECT_EQ(own, want ? lines{"D is_rbl_hit: IP address [192.0.2.1] hit on rbl list "
                                    "[zone.example]"}
                            : lines{});
        EXPECT_EQ(questions(),
                  a == 0 ? lines{"1.2.0.192.zone.example. 1"}
                         : (lines{"1.2.0.192.zone.example. 1", "1.2.0.192.zone.example. 28"}));
    }
}

TEST_F(rbl_host_lookup, what_cannot_be_asked_is_no_hit) {
    const std::string no_address = "is_rbl_hit: Provided state does not have a valid IP address";
    const std::string no_host = "is_rbl_hit: Failure generating RBL host string";
    EXPECT_EQ(is_rbl_hit(nullptr, "z"), 0);
    EXPECT_EQ(log.errors(), lines{no_address});
    EXPECT_EQ(is_rbl_hit(state, nullptr), 0);
    EXPECT_EQ(log.errors(), lines{no_address});
    EXPECT_EQ(is_rbl_hit(state, ""), 0);
    EXPECT_EQ(log.errors(),
              (lines{"quillfence_rbl_host: Provided RBL list is not valid", no_host}));
    put_ip(nullptr);
    EXPECT_EQ(is_rbl_hit(state, "z"), 0);
    EXPECT_EQ(log.errors(), lines{no_address});
    put_ip("");
    EXPECT_EQ(is_rbl_hit(state, "z"), 0);
    EXPECT_EQ(
        log.errors(),
        (lines{"quillfence_rbl_host: Provided state does not have a valid IP address", no_host}));
    put_ip("2001:db8::1");
    EXPECT_EQ(is_rbl_hit(state, "z"), 0);
    EXPECT_EQ(log.errors(),
              (lines{"quillfence_rbl_host: Failed to parse ip address for octets", no_host}));
    EXPECT_EQ(questions(), lines{});
}

} // namespace
} // namespace quillfence::testing
