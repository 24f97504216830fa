// The rule that ties sender domains to networks.
#include <string>

#include "drive_c.h"
#include "rule_verdict.h"
#include "rules.h"

namespace quillfence::testing {
namespace {

constexpr char list[] = "c:/quillfence/control/valid_domain_ips";

class known_sender_forgery : public traced_drive_test {
  protected:
    session state;

    int judge(const char *ip, const char *sender) {
        session::put(&state->ip, ip);
        session::put(&state->mail_from, sender);
        log.take();
        return rule_known_sender_forgery(state);
    }
    lines trace() {
        return rule_lines(log, "rule_known_sender_forgery");
    }
};

TEST_F(known_sender_forgery, a_client_outside_of_the_networks_is_a_hit) {
    drive.write(list, "example.org : 192.0.2.0/24, 198.51.100.7\n");
    EXPECT_EQ(judge("203.0.113.1", "alice@Example.org"), 1);
    EXPECT_EQ(trace(), lines{"D IP address [203.0.113.1] may not send for domain [example.org]"});
}

TEST_F(known_sender_forgery, a_client_inside_or_a_domain_without_a_line_is_none) {
    drive.write(list, "example.org : 192.0.2.0/24, 198.51.100.7\n");
    const struct {
        const char *ip, *sender;
    } cases[] = {
        {"192.0.2.55", "alice@example.org"},
        {"198.51.100.7", "alice@example.org"},
        {"203.0.113.1", "alice@example.net"},
        {"203.0.113.1", "alice@mail.example.org"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(judge(c.ip, c.sender), 0) << c.ip << " " << c.sender;
        EXPECT_EQ(trace(), lines{});
    }
}

TEST_F(known_sender_forgery, what_cannot_be_judged_is_no_hit) {
    EXPECT_EQ(rule_known_sender_forgery(nullptr), 0);
    EXPECT_EQ(trace(), lines{"E Invalid argument"});

    for (const char *sender : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_EQ(judge("203.0.113.1", sender), 0);
        EXPECT_EQ(trace(), lines{"D MAIL FROM is empty or NULL-nothing to check"});
    }
    for (const char *ip : {static_cast<const char *>(nullptr), "", "unknown", "192.0.2"}) {
        EXPECT_EQ(judge(ip, "alice@example.org"), 0);
        EXPECT_EQ(trace(), lines{"D session ip address is unknown or not an IP"});
    }
    EXPECT_EQ(judge("203.0.113.1", "alice@example.org"), 0);
    EXPECT_EQ(trace(), lines{"D valid_domain_ips files not set or missing"});
    EXPECT_FALSE(drive.exists(list)) << "a lookup never creates a file";

    drive.write(list, "example.org:192.0.2.1\n");
    EXPECT_EQ(judge("203.0.113.1", "bounce message"), 0); // no address, so no domain
    EXPECT_EQ(trace(), lines{});
}

TEST_F(known_sender_forgery, an_ipv6_client_may_send) {
    drive.write(list, "example.org:192.0.2.1\n");
    EXPECT_EQ(judge("2001:db8::1", "alice@example.org"), 0);
    EXPECT_EQ(log.errors(), lines{"ksf_check_domain_to_ip_restriction: failed to convert ip "
                                  "[2001:db8::1] to host order bytes"});
}

} // namespace
} // namespace quillfence::testing
