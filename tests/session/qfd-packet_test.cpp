// The records of the daemon's packets, built from arguments and sessions and turned into sessions.
#include "qfd-packet.h"

#include <cstring>
#include <string>
#include <vector>

#include "log_capture.h"
#include "owned_packets.h"
#include "owned_session.h"

namespace quillfence::testing {

namespace {

request from_args(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "program");
    std::vector<char *> argv;
    for (std::string &argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    return request(qfd_request_packet_from_args(static_cast<int>(arguments.size()), argv.data()));
}

request rcpt_request(const std::string &ip = "192.0.2.1") {
    return from_args(
        {"R", ip, "25", "1", "carol", "1", "mx.example.org", "a@example.org", "b@example.net"});
}

owned_session fresh_session(const char *ip, uint32_t stage) {
    owned_session state(new_smtp_state());
    state->ip = ip ? strdup(ip) : nullptr;
    state->state = stage;
    return state;
}

class packet_test : public logged_test {
  protected:
    void expect_error(const std::string &line) {
        EXPECT_EQ(log.errors(), lines{line});
    }
};

std::string shown(const char *text) {
    return text ? text : "(absent)";
}

} // namespace

using qfd_request_from_args = packet_test;

TEST_F(qfd_request_from_args, the_replayers_nine_values) {
    const request packet = from_args(
        {"R", "192.0.2.1", "25", "1", "", "0", "mx.example.org", "a@example.org", "b@example.net"});
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->id, 0xF3EA);
    EXPECT_EQ(packet->state, 4);
    EXPECT_STREQ(packet->ip, "192.0.2.1");
    EXPECT_EQ(packet->iplen, 9);
    EXPECT_STREQ(packet->port, "25");
    EXPECT_EQ(packet->portlen, 2);
    EXPECT_EQ(packet->tls, 1);
    EXPECT_EQ(packet->auth, nullptr);
    EXPECT_EQ(packet->authlen, 0);
    EXPECT_EQ(packet->mua, 0);
    EXPECT_STREQ(packet->helo, "mx.example.org");
    EXPECT_EQ(packet->helolen, 14);
    EXPECT_STREQ(packet->from, "a@example.org");
    EXPECT_EQ(packet->fromlen, 13);
    EXPECT_STREQ(packet->to, "b@example.net");
    EXPECT_EQ(packet->tolen, 13);
}

TEST_F(qfd_request_from_args, each_mode_carries_its_fields) {
    static const struct {
        const char *mode;
        size_t values;
        uint8_t state;
        const char *ip, *port, *auth, *helo, *from, *to;
        int tls, mua;
    } cases[] = {
        {"C", 3, 1, "192.0.2.1", "25", "(absent)", "(absent)", "(absent)", "(absent)", 1, 0},
        {"A", 4, 2, "192.0.2.1", "25", "carol", "(absent)", "(absent)", "(absent)", 1, 0},
        {"M", 7, 3, "192.0.2.1", "25", "carol", "mx.a.org", "s@a.org", "(absent)", 1, 1},
        {"R", 8, 4, "192.0.2.1", "25", "carol", "mx.a.org", "s@a.org", "r@b.net", 1, 1},
        {"T", 0, 255, "(absent)", "(absent)", "(absent)", "(absent)", "(absent)", "(absent)", 0, 0},
    };
    const std::vector<std::string> values = {"192.0.2.1", "25",       "1",       "carol",
                                             "1",         "mx.a.org", "s@a.org", "r@b.net"};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.mode);
        std::vector<std::string> arguments = {c.mode};
        arguments.insert(arguments.end(), values.begin(),
                         values.begin() + static_cast<ptrdiff_t>(c.values));
        const request packet = from_args(arguments);
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->id, QFD_PACKET_ID);
        EXPECT_EQ(packet->state, c.state);
        EXPECT_EQ(shown(packet->ip), c.ip);
        EXPECT_EQ(shown(packet->port), c.port);
        EXPECT_EQ(shown(packet->auth), c.auth);
        EXPECT_EQ(shown(packet->helo), c.helo);
        EXPECT_EQ(shown(packet->from), c.from);
        EXPECT_EQ(shown(packet->to), c.to);
        EXPECT_EQ(packet->tls, c.tls);
        EXPECT_EQ(packet->mua, c.mua);
    }
}

TEST_F(qfd_request_from_args, the_count_must_match_the_letter) {
    const std::vector<std::string> all = {"192.0.2.1", "25", "1", "u", "0", "h", "f", "t", "x"};
    static const struct {
        const char *mode;
        size_t values;
    } cases[] = {{"C", 2}, {"C", 4}, {"A", 3}, {"A", 5}, {"M", 6}, {"M", 8},
                 {"R", 7}, {"R", 9}, {"T", 1}, {"r", 8}, {"X", 8}};
    for (const auto &c : cases) {
        std::vector<std::string> arguments = {c.mode};
        arguments.insert(arguments.end(), all.begin(),
                         all.begin() + static_cast<ptrdiff_t>(c.values));
        EXPECT_EQ(from_args(arguments), nullptr) << c.mode << " with " << c.values << " values";
        expect_error("qfd_request_packet_from_args: Invalid argument");
    }
}

TEST_F(qfd_request_from_args, too_few_arguments_or_no_vector) {
    EXPECT_EQ(from_args({}), nullptr);
    expect_error("qfd_request_packet_from_args: Invalid argument");
    EXPECT_EQ(qfd_request_packet_from_args(10, nullptr), nullptr);
    expect_error("qfd_request_packet_from_args: Invalid argument");
}

TEST_F(qfd_request_from_args, an_empty_mode_is_reported_twice) {
    EXPECT_EQ(from_args({""}), nullptr);
    EXPECT_EQ(log.errors(), (lines{"__process_state_arg: Invalid argument",
                                   "qfd_request_packet_from_args: Invalid argument"}));
}

TEST_F(qfd_request_from_args, an_empty_ip_ends_as_out_of_memory) {
    EXPECT_EQ(from_args({"C", "", "25", "0"}), nullptr);
    EXPECT_EQ(log.errors(),
              (lines{"__process_ip_arg: Invalid argument",
                     std::string("qfd_request_packet_from_args: ") + strerror(ENOMEM)}));
}

TEST_F(qfd_request_from_args, a_missing_argument_ends_as_out_of_memory) {
    char program[] = "program", mode[] = "C", ip[] = "192.0.2.1", tls[] = "1";
    char *argv[] = {program, mode, ip, nullptr, tls, nullptr};
    EXPECT_EQ(qfd_request_packet_from_args(5, argv), nullptr);
    expect_error(std::string("qfd_request_packet_from_args: ") + strerror(ENOMEM));
}

TEST_F(qfd_request_from_args, a_missing_flag_or_user_is_absent) {
    char program[] = "program", mode[] = "A", ip[] = "192.0.2.1", port[] = "25";
    char *argv[] = {program, mode, ip, port, nullptr, nullptr, nullptr};
    const request packet(qfd_request_packet_from_args(6, argv));
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->tls, 0);
    EXPECT_EQ(packet->auth, nullptr);
}

TEST_F(qfd_request_from_args, flags_are_numbers) {
    static const struct {
        const char *argument;
        int want;
    } cases[] = {
        {"0", 0},          {"1", 1},
        {"2", 1},          {"-1", 1},
        {"yes", 0},        {"", 0},
        {" 1", 1},         {"1yes", 1},
        {"00", 0},         {"010", 1},
        {"4294967296", 1}, {"true", 0},
        {"+3", 1},         {"99999999999999999999", 1},
    };
    for (const auto &c : cases) {
        const request packet =
            from_args({"M", "192.0.2.1", "25", c.argument, "", c.argument, "h", "f"});
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->tls, c.want) << "tls " << c.argument;
        EXPECT_EQ(packet->mua, c.want) << "mua " << c.argument;
    }
}

TEST_F(qfd_request_from_args, empty_texts_other_than_the_user_are_copied) {
    const request packet = from_args({"R", "192.0.2.1", "", "0", "", "0", "", "", ""});
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->auth, nullptr);
    for (const char *text : {packet->port, packet->helo, packet->from, packet->to}) {
        EXPECT_STREQ(text, "");
    }
    EXPECT_EQ(packet->portlen + packet->helolen + packet->fromlen + packet->tolen, 0);
}

// The port is not tested to be numeric, and the ip need not be an address.
TEST_F(qfd_request_from_args, port_and_ip_may_be_any_text) {
    const request packet = from_args({"C", "garbage", "smtp", "0"});
    ASSERT_NE(packet, nullptr);
    EXPECT_STREQ(packet->ip, "garbage");
    EXPECT_STREQ(packet->port, "smtp");
}

// Kept on purpose.
TEST_F(qfd_request_from_args, lengths_keep_their_low_16_bits) {
    static const struct {
        size_t length;
        uint16_t want;
    } cases[] = {{65535, 65535}, {65536, 0}, {70000, 4464}};
    for (const auto &c : cases) {
        const request packet =
            from_args({"M", "192.0.2.1", "25", "0", "", "0", std::string(c.length, 'h'), ""});
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->helolen, c.want) << c.length;
        EXPECT_EQ(strlen(packet->helo), c.length);
    }
}

using qfd_state_arg = packet_test;

TEST_F(qfd_state_arg, letters) {
    static const struct {
        const char *argument;
        int state, count;
    } cases[] = {
        {"C", 1, 5},     {"A", 2, 6},  {"M", 3, 9},  {"R", 4, 10},  {"T", 255, 2},
        {"Rcpt", 4, 10}, {"c", 0, -7}, {"1", 0, -7}, {" R", 0, -7}, {"x", 0, -7},
    };
    for (const auto &c : cases) {
        int count = -7;
        EXPECT_EQ(__process_state_arg(c.argument, &count), c.state) << c.argument;
        EXPECT_EQ(count, c.count) << c.argument;
    }
}

TEST_F(qfd_state_arg, bad_arguments) {
    int count = -7;
    EXPECT_EQ(__process_state_arg(nullptr, &count), 0);
    expect_error("__process_state_arg: Invalid argument");
    EXPECT_EQ(__process_state_arg("", &count), 0);
    expect_error("__process_state_arg: Invalid argument");
    EXPECT_EQ(__process_state_arg("R", nullptr), 0);
    expect_error("__process_state_arg: Invalid argument");
    EXPECT_EQ(count, -7);
}

using qfd_ip_arg = packet_test;

TEST_F(qfd_ip_arg, addresses) {
    static const struct {
        const char *argument, *want;
    } cases[] = {
        {"192.0.2.1", "192.0.2.1"},
        {"garbage", "garbage"},
        {"300.1.2.3", "300.1.2.3"},
        {"::ffff:192.0.2.1", "192.0.2.1"},
        {"::FFFF:C000:0201", "192.0.2.1"},
        {"::192.0.2.1", "192.0.2.1"},
        {"::C000:0201", "192.0.2.1"},
        {"0:0:0:0:0:ffff:10.0.0.1", "10.0.0.1"},
        // A tail that the owner of the network chose stays a part of the IPv6 address.
        {"::ffff:0:192.0.2.1", "::ffff:0:192.0.2.1"},     // translated
        {"fe80::5efe:192.0.2.1", "fe80::5efe:192.0.2.1"}, // of a tunnel (ISATAP)
        {"2001:db8::5efe:127.0.0.1", "2001:db8::5efe:127.0.0.1"},
        {"2001:db8::200:5efe:10.0.0.1", "2001:db8::200:5efe:10.0.0.1"},
        {"::5efe:192.0.2.1", "::5efe:192.0.2.1"},
        {"::1:ffff:192.0.2.1", "::1:ffff:c000:201"},
        {"64:ff9b::192.0.2.1", "64:ff9b::c000:201"}, // not one of the forms with a dotted end
        {"2001:db8:0:0:0:0:0:1", "2001:db8::1"},
        {"2001:DB8::A", "2001:db8::a"},
        {"::1", "::1"},
        {"::", "::"},
        {"fe80::", "fe80::"},
    };
    for (const auto &c : cases) {
        char *got = __process_ip_arg(c.argument);
        EXPECT_STREQ(got, c.want) << c.argument;
        free(got);
    }
}

TEST_F(qfd_ip_arg, a_missing_or_empty_argument) {
    EXPECT_EQ(__process_ip_arg(nullptr), nullptr);
    expect_error("__process_ip_arg: Invalid argument");
    EXPECT_EQ(__process_ip_arg(""), nullptr);
    expect_error("__process_ip_arg: Invalid argument");
}

using qfd_request_from_session = packet_test;

TEST_F(qfd_request_from_session, stages) {
    static const struct {
        uint32_t stage;
        int packet_state; // 0: refused
        const char *auth, *helo, *from, *to;
        int mua;
    } cases[] = {
        {0, 0, "", "", "", "", 0},
        {1, 1, "(absent)", "(absent)", "(absent)", "(absent)", 0},
        {2, 2, "carol", "(absent)", "(absent)", "(absent)", 0},
        {3, 0, "", "", "", "", 0},
        {4, 3, "carol", "mx.a.org", "s@a.org", "(absent)", 1},
        {5, 4, "carol", "mx.a.org", "s@a.org", "r@b.net", 1},
        {6, 0, "", "", "", "", 0},
        {7, 0, "", "", "", "", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.stage);
        const owned_session state = fresh_session("192.0.2.1", c.stage);
        state->port = strdup("25");
        state->tls = 1;
        state->auth_user = strdup("carol");
        state->mua = 1;
        state->helo = strdup("mx.a.org");
        state->mail_from = strdup("s@a.org");
        state->rcpt_to = strdup("r@b.net");
        const request packet(qfd_request_packet_from_smtp_state(state.get()));
        if (!c.packet_state) {
            EXPECT_EQ(packet, nullptr);
            expect_error("qfd_request_packet_from_smtp_state: Invalid argument");
            continue;
        }
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->id, QFD_PACKET_ID);
        EXPECT_EQ(packet->state, c.packet_state);
        EXPECT_STREQ(packet->ip, "192.0.2.1");
        EXPECT_EQ(packet->iplen, 9);
        EXPECT_STREQ(packet->port, "25");
        EXPECT_EQ(packet->portlen, 2);
        EXPECT_EQ(packet->tls, 1);
        EXPECT_EQ(shown(packet->auth), c.auth);
        EXPECT_EQ(packet->authlen, packet->auth ? 5 : 0);
        EXPECT_EQ(packet->mua, c.mua);
        EXPECT_EQ(shown(packet->helo), c.helo);
        EXPECT_EQ(packet->helolen, packet->helo ? 8 : 0);
        EXPECT_EQ(shown(packet->from), c.from);
        EXPECT_EQ(packet->fromlen, packet->from ? 7 : 0);
        EXPECT_EQ(shown(packet->to), c.to);
        EXPECT_EQ(packet->tolen, packet->to ? 7 : 0);
    }
}

TEST_F(qfd_request_from_session, empty_texts_stay_absent_but_an_empty_port_is_copied) {
    const owned_session state = fresh_session("192.0.2.1", 5);
    state->port = strdup("");
    state->auth_user = strdup("");
    state->helo = strdup("");
    state->mail_from = strdup("");
    state->rcpt_to = strdup("");
    const request packet(qfd_request_packet_from_smtp_state(state.get()));
    ASSERT_NE(packet, nullptr);
    EXPECT_STREQ(packet->port, "");
    for (const char *text : {packet->auth, packet->helo, packet->from, packet->to}) {
        EXPECT_EQ(text, nullptr);
    }
}

TEST_F(qfd_request_from_session, texts_are_not_shared) {
    const owned_session state = fresh_session("192.0.2.1", 1);
    const request packet(qfd_request_packet_from_smtp_state(state.get()));
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->port, nullptr);
    EXPECT_NE(packet->ip, state->ip);
}

TEST_F(qfd_request_from_session, needs_a_session_with_an_ip) {
    EXPECT_EQ(qfd_request_packet_from_smtp_state(nullptr), nullptr);
    expect_error("qfd_request_packet_from_smtp_state: Invalid argument");
    for (const char *ip : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_EQ(qfd_request_packet_from_smtp_state(fresh_session(ip, 1).get()), nullptr);
        expect_error("qfd_request_packet_from_smtp_state: Invalid argument");
    }
}

using qfd_request_to_session = packet_test;

TEST_F(qfd_request_to_session, each_mode_fills_its_fields) {
    static const struct {
        const char *mode;
        size_t values;
        uint32_t stage;
        const char *auth, *helo, *from, *to;
        int mua;
    } cases[] = {
        {"C", 3, 1, "(absent)", "(absent)", "(absent)", "(absent)", 0},
        {"A", 4, 2, "carol", "(absent)", "(absent)", "(absent)", 0},
        {"M", 7, 4, "carol", "mx.a.org", "s@a.org", "(absent)", 1},
        {"R", 8, 5, "carol", "mx.a.org", "s@a.org", "r@b.net", 1},
    };
    const std::vector<std::string> values = {"192.0.2.1", "25",       "1",       "carol",
                                             "1",         "mx.a.org", "s@a.org", "r@b.net"};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.mode);
        std::vector<std::string> arguments = {c.mode};
        arguments.insert(arguments.end(), values.begin(),
                         values.begin() + static_cast<ptrdiff_t>(c.values));
        const request packet = from_args(arguments);
        const owned_session state(qfd_request_packet_to_smtp_state(packet.get()));
        ASSERT_NE(state, nullptr);
        EXPECT_EQ(state->state, c.stage);
        EXPECT_STREQ(state->ip, "192.0.2.1");
        EXPECT_NE(state->ip, packet->ip);
        EXPECT_STREQ(state->port, "25");
        EXPECT_EQ(state->tls, 1);
        EXPECT_EQ(shown(state->auth_user), c.auth);
        EXPECT_EQ(state->mua, c.mua);
        EXPECT_EQ(shown(state->helo), c.helo);
        EXPECT_EQ(shown(state->mail_from), c.from);
        EXPECT_EQ(shown(state->rcpt_to), c.to);
        EXPECT_EQ(state->ndr, 0);
        EXPECT_EQ(state->base_dir, nullptr);
    }
}

TEST_F(qfd_request_to_session, absent_texts_stay_absent_and_empty_ones_empty) {
    const request packet = from_args({"R", "192.0.2.1", "25", "0", "", "0", "", "", ""});
    free(packet->port);
    packet->port = nullptr;
    const owned_session state(qfd_request_packet_to_smtp_state(packet.get()));
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->port, nullptr);
    EXPECT_EQ(state->auth_user, nullptr);
    EXPECT_STREQ(state->helo, "");
    EXPECT_STREQ(state->mail_from, "");
    EXPECT_STREQ(state->rcpt_to, "");
}

TEST_F(qfd_request_to_session, a_test_packet_is_valid_but_no_session) {
    const request packet = from_args({"T"});
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(qfd_request_packet_validate(packet.get()), 1);
    EXPECT_EQ(qfd_request_packet_to_smtp_state(packet.get()), nullptr);
    expect_error("qfd_request_packet_to_smtp_state: Invalid argument");
}

TEST_F(qfd_request_to_session, an_invalid_packet_is_reported_by_both) {
    EXPECT_EQ(qfd_request_packet_to_smtp_state(nullptr), nullptr);
    EXPECT_EQ(log.errors(), (lines{"qfd_request_packet_validate: Invalid argument",
                                   "qfd_request_packet_to_smtp_state: Invalid argument"}));
    const request packet = rcpt_request();
    packet->id = 1;
    EXPECT_EQ(qfd_request_packet_to_smtp_state(packet.get()), nullptr);
    EXPECT_EQ(log.errors(), (lines{"qfd_request_packet_validate: invalid packet id detected!",
                                   "qfd_request_packet_to_smtp_state: Invalid argument"}));
}

// Kept on purpose: validation lets it pass, the conversion does not.
TEST_F(qfd_request_to_session, a_missing_recipient_is_out_of_memory) {
    const request packet = rcpt_request();
    free(packet->to);
    packet->to = nullptr;
    packet->tolen = 0;
    EXPECT_EQ(qfd_request_packet_validate(packet.get()), 1);
    EXPECT_EQ(qfd_request_packet_to_smtp_state(packet.get()), nullptr);
    expect_error(std::string("qfd_request_packet_to_smtp_state: ") + strerror(ENOMEM));
}

using qfd_validate = packet_test;

TEST_F(qfd_validate, checks_in_order) {
    char address[] = "192.0.2.1", empty[] = "", user[] = "carol";
    static constexpr char id[] = "invalid packet id detected!";
    static constexpr char state[] = "invalid state type detected";
    static constexpr char ip[] = "invalid IP address detected";
    static constexpr char auth[] = "invalid authentication argument detected!";
    const struct {
        const char *name;
        uint16_t id;
        uint8_t state;
        char *ip;
        char *auth;
        uint16_t authlen;
        const char *want; // null: valid
    } cases[] = {
        {"everything wrong: the id", 0x1234, 0, nullptr, nullptr, 0, id},
        {"id of the other byte order", 0xEAF3, 1, address, nullptr, 0, id},
        {"id 0", 0, 255, nullptr, nullptr, 0, id},
        {"state 0", 0xF3EA, 0, nullptr, nullptr, 0, state},
        {"state 5", 0xF3EA, 5, address, user, 5, state},
        {"state 254", 0xF3EA, 254, address, user, 5, state},
        {"no ip", 0xF3EA, 1, nullptr, nullptr, 0, ip},
        {"empty ip", 0xF3EA, 4, empty, nullptr, 0, ip},
        {"auth step without ip or user: the ip", 0xF3EA, 2, nullptr, nullptr, 0, ip},
        {"auth step without user", 0xF3EA, 2, address, nullptr, 5, auth},
        {"auth step with an empty user", 0xF3EA, 2, address, empty, 0, auth},
        {"auth step with a user of length 0", 0xF3EA, 2, address, user, 0, auth},
        {"auth step", 0xF3EA, 2, address, user, 5, nullptr},
        {"connect", 0xF3EA, 1, address, nullptr, 0, nullptr},
        {"mail without user", 0xF3EA, 3, address, nullptr, 0, nullptr},
        {"rcpt without user", 0xF3EA, 4, address, nullptr, 0, nullptr},
        {"test packet", 0xF3EA, 255, nullptr, nullptr, 0, nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        qfd_request_packet packet = {};
        packet.id = c.id;
        packet.state = c.state;
        packet.ip = c.ip;
        packet.auth = c.auth;
        packet.authlen = c.authlen;
        EXPECT_EQ(qfd_request_packet_validate(&packet), c.want ? 0 : 1);
        EXPECT_EQ(log.errors(),
                  c.want ? lines{std::string("qfd_request_packet_validate: ") + c.want} : lines{});
    }
}

TEST_F(qfd_validate, null) {
    EXPECT_EQ(qfd_request_packet_validate(nullptr), 0);
    expect_error("qfd_request_packet_validate: Invalid argument");
}

using qfd_dump = packet_test;

TEST_F(qfd_dump, a_full_request) {
    const request packet = rcpt_request();
    ASSERT_NE(packet, nullptr);
    log.take();
    qfd_request_packet_dump(packet.get());
    EXPECT_EQ(log.transcript(), (lines{
                                    "I ===========",
                                    "I id:      62442",
                                    "I state:   4",
                                    "I iplen:   9",
                                    "I ip:      192.0.2.1",
                                    "I portlen: 2",
                                    "I port:    25",
                                    "I tls:     yes",
                                    "I authlen: 5",
                                    "I auth:    carol",
                                    "I mua:     yes",
                                    "I helolen: 14",
                                    "I helo:    mx.example.org",
                                    "I fromlen: 13",
                                    "I from:    a@example.org",
                                    "I tolen:   13",
                                    "I to:      b@example.net",
                                    "I ===========",
                                }));
}

TEST_F(qfd_dump, an_empty_request) {
    const qfd_request_packet packet = {};
    qfd_request_packet_dump(&packet);
    EXPECT_EQ(log.transcript(), (lines{
                                    "I ===========",
                                    "I id:      0",
                                    "I state:   0",
                                    "I iplen:   0",
                                    "I ip:      (null)",
                                    "I portlen: 0",
                                    "I port:    empty",
                                    "I tls:     no",
                                    "I authlen: 0",
                                    "I auth:    empty",
                                    "I mua:     no",
                                    "I helolen: 0",
                                    "I helo:    empty",
                                    "I fromlen: 0",
                                    "I from:    empty",
                                    "I tolen:   0",
                                    "I to:      empty",
                                    "I ===========",
                                }));
}

TEST_F(qfd_dump, responses) {
    char message[] = "go away", spam_hit[] = "require_helo";
    qfd_response_packet packet = {QFD_PACKET_ID, 4000000000u, 7, message, 12, spam_hit};
    qfd_response_packet_dump(&packet);
    EXPECT_EQ(log.transcript(), (lines{
                                    "I ================",
                                    "I id:           62442",
                                    "I result:       4000000000",
                                    "I message len:  7",
                                    "I message:      go away",
                                    "I spam hit len: 12",
                                    "I spam hit:     require_helo",
                                    "I ================",
                                }));
    packet = {};
    qfd_response_packet_dump(&packet);
    EXPECT_EQ(log.transcript(), (lines{
                                    "I ================",
                                    "I id:           0",
                                    "I result:       0",
                                    "I message len:  0",
                                    "I message:      none",
                                    "I spam hit len: 0",
                                    "I spam hit:     none",
                                    "I ================",
                                }));
}

TEST_F(qfd_dump, null_is_ignored) {
    qfd_request_packet_dump(nullptr);
    qfd_response_packet_dump(nullptr);
    EXPECT_EQ(log.transcript(), lines{});
}

TEST(qfd_free, null_is_accepted) {
    qfd_request_packet_free(nullptr);
    qfd_response_packet_free(nullptr);
}

} // namespace quillfence::testing
