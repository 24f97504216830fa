// The bytes of the daemon's packets, worked out by hand, and every way in which a stream can fail.
#include <cstring>
#include <string>
#include <vector>

#include "call_watch.h"
#include "drive_c.h"
#include "owned_packets.h"
#include "qfd-packet.h"

namespace quillfence::testing {

namespace {

using namespace std::string_literals;

class wire_test : public drive_test {
  protected:
    static constexpr char path[] = "c:/quillfence/stream";

    vc_handle open_to_write() {
        drive.write(path, "");
        return stream = vc_open_ex(path, 0, 1, 0);
    }
    // A stream that holds these bytes and then ends.
    vc_handle open_with(const std::string &bytes) {
        drive.write(path, bytes);
        return stream = vc_open_ex(path, 0, 0, 0);
    }
    std::string written() {
        vc_close(stream);
        return drive.read(path);
    }
    void expect_errors(const lines &want) {
        EXPECT_EQ(log.errors(), want);
    }
    vc_handle stream = vc_invalid_handle;
};

// The error with which calls are made to fail.
constexpr uint32_t access_denied = 5;

// What errno's text is when nothing has set it.
std::string no_errno() {
    return strerror(0);
}

qfd_request_packet request_of(uint8_t state, std::string &ip, std::string &port) {
    qfd_request_packet packet = {};
    packet.id = QFD_PACKET_ID;
    packet.state = state;
    packet.ip = ip.data();
    packet.iplen = static_cast<uint16_t>(ip.size());
    packet.port = port.data();
    packet.portlen = static_cast<uint16_t>(port.size());
    return packet;
}

const std::string connect_bytes = "\xEA\xF3" // id
                                  "\x01"     // state
                                  "\x09\x00"
                                  "192.0.2.1"
                                  "\x02\x00"
                                  "25"
                                  "\x00"     // tls
                                  "\x00\x00" // auth
                                  "\x00"     // mua
                                  "\x00\x00" // helo
                                  "\x00\x00" // from
                                  "\x00\x00" // to
                                  ""s;

const std::string rcpt_body_bytes = "\x0B\x00"
                                    "2001:db8::1"
                                    "\x04\x00"
                                    "2525"
                                    "\x01" // tls
                                    "\x05\x00"
                                    "carol"
                                    "\x01" // mua
                                    "\x06\x00"
                                    "mx.org"
                                    "\x03\x00"
                                    "a@b"
                                    "\x03\x00"
                                    "c@d"s;

} // namespace

// --- Texts ---

TEST_F(wire_test, a_text_is_its_length_and_its_bytes) {
    static const struct {
        uint16_t length;
        const char *text;
        std::string want;
    } cases[] = {
        {3, "abc",
         "\x03\x00"
         "abc"s},
        {2, "abc",
         "\x02\x00"
         "ab"s},
        {0, "abc", "\x00\x00"s},
        {0, nullptr, "\x00\x00"s},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(qfd_packet_write_string(open_to_write(), c.length, c.text), 1);
        EXPECT_EQ(written(), c.want);
    }
}

TEST_F(wire_test, a_text_that_is_refused) {
    EXPECT_EQ(qfd_packet_write_string(vc_invalid_handle, 1, "a"), 0);
    expect_errors({"qfd_packet_write_string: Invalid argument"});
    EXPECT_EQ(qfd_packet_write_string(open_to_write(), 1, nullptr), 0);
    expect_errors({"qfd_packet_write_string: Invalid argument"});
    EXPECT_EQ(qfd_packet_write_string(stream, 4, "abc"), 0);
    expect_errors({"qfd_packet_write_string: Invalid argument"});
    EXPECT_EQ(written(), "");
}

TEST_F(wire_test, a_failed_write_of_a_text_has_no_line_of_its_own) {
    for (const int call : {1, 2}) {
        open_to_write();
        {
            call_watch watch;
            watch.fail("file_write", call, access_denied);
            EXPECT_EQ(qfd_packet_write_string(stream, 3, "abc"), 0) << "write " << call;
        }
        expect_errors({"vc_write: fatal error on block write (w32) got error code 5"});
        vc_close(stream);
    }
}

TEST_F(wire_test, a_text_is_read_back) {
    uint16_t length = 9;
    char *text = strdup("old");
    EXPECT_EQ(qfd_packet_read_string(open_with("\x03\x00"
                                               "abcdef"s),
                                     &length, &text),
              1);
    EXPECT_EQ(length, 3);
    EXPECT_STREQ(text, "abc");
    vc_close(stream);

    EXPECT_EQ(qfd_packet_read_string(open_with("\x00\x00"
                                               "abc"s),
                                     &length, &text),
              1);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(text, nullptr);
    vc_close(stream);
}

TEST_F(wire_test, a_text_of_the_largest_length_is_read_back) {
    const std::string large(65535, 'x');
    uint16_t length = 0;
    char *text = nullptr;
    EXPECT_EQ(qfd_packet_read_string(open_with("\xFF\xFF"s + large), &length, &text), 1);
    EXPECT_EQ(length, 65535);
    EXPECT_EQ(text, large);
    free(text);
    vc_close(stream);
}

TEST_F(wire_test, a_stream_that_ends_inside_a_text_reads_as_zeros) {
    uint16_t length = 0;
    char *text = nullptr;
    EXPECT_EQ(qfd_packet_read_string(open_with("\x05\x00"
                                               "ab"s),
                                     &length, &text),
              1);
    EXPECT_EQ(length, 5);
    EXPECT_STREQ(text, "ab");
    EXPECT_EQ(memcmp(text, "ab\0\0\0\0", 6), 0);
    vc_close(stream);

    EXPECT_EQ(qfd_packet_read_string(open_with(""), &length, &text), 1);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(text, nullptr);
    vc_close(stream);

    // One byte of the length: the other is 0.
    EXPECT_EQ(qfd_packet_read_string(open_with("\x02"s), &length, &text), 1);
    EXPECT_EQ(length, 2);
    EXPECT_STREQ(text, "");
    free(text);
    vc_close(stream);
}

TEST_F(wire_test, reading_a_text_fails) {
    uint16_t length = 7;
    char *text = strdup("old");
    EXPECT_EQ(qfd_packet_read_string(vc_invalid_handle, &length, &text), 0);
    expect_errors({"qfd_packet_read_string: Invalid argument"});
    EXPECT_EQ(qfd_packet_read_string(open_with("\x01\x00x"s), nullptr, &text), 0);
    expect_errors({"qfd_packet_read_string: Invalid argument"});
    EXPECT_EQ(qfd_packet_read_string(stream, &length, nullptr), 0);
    expect_errors({"qfd_packet_read_string: Invalid argument"});
    EXPECT_EQ(length, 7);
    EXPECT_STREQ(text, "old");
    {
        call_watch watch;
        watch.fail("file_read", 1, access_denied);
        EXPECT_EQ(qfd_packet_read_string(stream, &length, &text), 0);
    }
    expect_errors({"vc_read_nonblock: fatal error on read (w32) got error code 5",
                   "qfd_packet_read_string: Error reading packet string length: " + no_errno()});
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(length, 0);
    {
        call_watch watch;
        watch.fail("file_read", 2, access_denied);
        EXPECT_EQ(qfd_packet_read_string(stream, &length, &text), 0);
    }
    expect_errors({"vc_read_nonblock: fatal error on read (w32) got error code 5",
                   "qfd_packet_read_string: Error reading packet string: " + no_errno()});
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(length, 0);
    vc_close(stream);
}

// --- Requests ---

TEST_F(wire_test, a_connect_request_is_28_bytes) {
    std::string ip = "192.0.2.1", port = "25";
    const qfd_request_packet packet = request_of(QFD_STATE_CONNECT, ip, port);
    EXPECT_EQ(qfd_request_packet_send(open_to_write(), &packet), 1);
    const std::string bytes = written();
    EXPECT_EQ(bytes.size(), 28u);
    EXPECT_EQ(bytes, connect_bytes);
}

TEST_F(wire_test, a_test_request_is_17_bytes) {
    qfd_request_packet packet = {};
    packet.id = QFD_PACKET_ID;
    packet.state = QFD_STATE_TEST;
    EXPECT_EQ(qfd_request_packet_send(open_to_write(), &packet), 1);
    EXPECT_EQ(written(), "\xEA\xF3\xFF"
                         "\0\0\0\0\0\0\0\0\0\0\0\0\0\0"s);
}

TEST_F(wire_test, a_full_request_in_field_order) {
    std::string ip = "2001:db8::1", port = "2525", auth = "carol", helo = "mx.org", from = "a@b",
                to = "c@d";
    qfd_request_packet packet = request_of(QFD_STATE_RCPT, ip, port);
    packet.tls = 1;
    packet.auth = auth.data();
    packet.authlen = 5;
    packet.mua = 1;
    packet.helo = helo.data();
    packet.helolen = 6;
    packet.from = from.data();
    packet.fromlen = 3;
    packet.to = to.data();
    packet.tolen = 3;
    EXPECT_EQ(qfd_request_packet_send(open_to_write(), &packet), 1);
    EXPECT_EQ(written(), "\xEA\xF3\x04"s + rcpt_body_bytes);
}

// A shorter stored length sends only the first bytes.
TEST_F(wire_test, stored_lengths_count) {
    std::string ip = "192.0.2.1", port = "25";
    qfd_request_packet packet = request_of(QFD_STATE_CONNECT, ip, port);
    packet.portlen = 1;
    EXPECT_EQ(qfd_request_packet_send(open_to_write(), &packet), 1);
    EXPECT_EQ(written().substr(14, 4), "\x01\x00"
                                       "2"
                                       "\x00"s);
}

TEST_F(wire_test, sending_a_request_fails) {
    std::string ip = "192.0.2.1", port = "25";
    qfd_request_packet packet = request_of(QFD_STATE_CONNECT, ip, port);
    EXPECT_EQ(qfd_request_packet_send(vc_invalid_handle, &packet), 0);
    expect_errors({"qfd_request_packet_send: Invalid argument"});
    EXPECT_EQ(qfd_request_packet_send(open_to_write(), nullptr), 0);
    expect_errors({"qfd_request_packet_send: Invalid argument"});

    packet.state = 7;
    EXPECT_EQ(qfd_request_packet_send(stream, &packet), 0);
    expect_errors({"qfd_request_packet_validate: invalid state type detected",
                   "qfd_request_packet_send: Invalid daemon request packet"});
    EXPECT_EQ(written(), "");

    packet.state = QFD_STATE_CONNECT;
    packet.portlen = 3; // longer than the port
    EXPECT_EQ(qfd_request_packet_send(open_to_write(), &packet), 0);
    expect_errors(
        {"qfd_packet_write_string: Invalid argument",
         "qfd_request_packet_send: Failed to write daemon request packet: " + no_errno()});
    vc_close(stream);
}

// Ten fields, of which the two present texts take two writes each.
TEST_F(wire_test, every_failed_write_of_a_request_ends_the_send) {
    std::string ip = "192.0.2.1", port = "25";
    const qfd_request_packet packet = request_of(QFD_STATE_CONNECT, ip, port);
    constexpr int writes = 12;
    for (int call = 1; call <= writes; ++call) {
        open_to_write();
        {
            call_watch watch;
            watch.fail("file_write", call, access_denied);
            EXPECT_EQ(qfd_request_packet_send(stream, &packet), 0) << "write " << call;
        }
        expect_errors(
            {"vc_write: fatal error on block write (w32) got error code 5",
             "qfd_request_packet_send: Failed to write daemon request packet: " + no_errno()});
        vc_close(stream);
    }
    call_watch watch;
    watch.fail("file_write", writes + 1, access_denied);
    EXPECT_EQ(qfd_request_packet_send(open_to_write(), &packet), 1);
    vc_close(stream);
}

TEST_F(wire_test, receiving_a_state) {
    static constexpr char function[] = "qfd_request_packet_receive_state: ";
    static const struct {
        const char *name;
        std::string bytes;
        int want;
        const char *error;
    } cases[] = {
        {"connect", "\xEA\xF3\x01"s, 1, nullptr},
        {"auth", "\xEA\xF3\x02"s, 2, nullptr},
        {"mail", "\xEA\xF3\x03"s, 3, nullptr},
        {"rcpt", "\xEA\xF3\x04"s, 4, nullptr},
        {"test", "\xEA\xF3\xFF"s, 255, nullptr},
        {"state 7", "\xEA\xF3\x07"s, 0, "The packet state is not recognized"},
        {"state 0", "\xEA\xF3\x00"s, 0, "The packet state is not recognized"},
        {"state 254", "\xEA\xF3\xFE"s, 0, "The packet state is not recognized"},
        {"ends before the state", "\xEA\xF3"s, 0, "The packet state is not recognized"},
        {"bytes swapped", "\xF3\xEA\x01"s, 0, "The packet id does not have the expected value"},
        {"ends inside the id", "\xEA"s, 0, "The packet id does not have the expected value"},
        {"nothing", ""s, 0, "The packet id does not have the expected value"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(qfd_request_packet_receive_state(open_with(c.bytes)), c.want);
        expect_errors(c.error ? lines{std::string(function) + c.error} : lines{});
        vc_close(stream);
    }
}

TEST_F(wire_test, receiving_a_state_fails) {
    EXPECT_EQ(qfd_request_packet_receive_state(vc_invalid_handle), 0);
    expect_errors({"qfd_request_packet_receive_state: Invalid argument"});
    static const char *wanted[] = {"Failed to read in the packet id: ",
                                   "Failed to read in the packet state: "};
    for (int call = 1; call <= 2; ++call) {
        open_with("\xEA\xF3\x01"s);
        {
            call_watch watch;
            watch.fail("file_read", call, access_denied);
            EXPECT_EQ(qfd_request_packet_receive_state(stream), 0);
        }
        expect_errors(
            {"vc_read_nonblock: fatal error on read (w32) got error code 5",
             std::string("qfd_request_packet_receive_state: ") + wanted[call - 1] + no_errno()});
        vc_close(stream);
    }
}

TEST_F(wire_test, a_request_is_received_in_two_steps) {
    open_with("\xEA\xF3\x04"s + rcpt_body_bytes);
    EXPECT_EQ(qfd_request_packet_receive_state(stream), QFD_STATE_RCPT);
    const request packet(qfd_request_packet_receive(stream));
    vc_close(stream);
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->id, 0);
    EXPECT_EQ(packet->state, 0);
    EXPECT_STREQ(packet->ip, "2001:db8::1");
    EXPECT_EQ(packet->iplen, 11);
    EXPECT_STREQ(packet->port, "2525");
    EXPECT_EQ(packet->portlen, 4);
    EXPECT_EQ(packet->tls, 1);
    EXPECT_STREQ(packet->auth, "carol");
    EXPECT_EQ(packet->authlen, 5);
    EXPECT_EQ(packet->mua, 1);
    EXPECT_STREQ(packet->helo, "mx.org");
    EXPECT_EQ(packet->helolen, 6);
    EXPECT_STREQ(packet->from, "a@b");
    EXPECT_EQ(packet->fromlen, 3);
    EXPECT_STREQ(packet->to, "c@d");
    EXPECT_EQ(packet->tolen, 3);
}

// Every cut of a packet is received: the rest reads as zeros.
TEST_F(wire_test, a_request_that_ends_early_is_padded_with_zeros) {
    for (size_t size = 0; size < rcpt_body_bytes.size(); ++size) {
        SCOPED_TRACE(size);
        open_with(rcpt_body_bytes.substr(0, size));
        const request packet(qfd_request_packet_receive(stream));
        vc_close(stream);
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->tls, size > 19);
        EXPECT_EQ(packet->mua, size > 27);
        EXPECT_EQ(packet->to == nullptr, size < 42);
    }
}

TEST_F(wire_test, receiving_a_request_fails) {
    EXPECT_EQ(qfd_request_packet_receive(vc_invalid_handle), nullptr);
    expect_errors({"qfd_request_packet_receive: Invalid argument"});
}

// Under the address sanitizer this also shows that what was read already is released.
TEST_F(wire_test, every_failed_read_of_a_request_ends_the_receipt) {
    constexpr int reads = 14; // six texts of two reads each, and two flags
    static constexpr char error[] = "vc_read_nonblock: fatal error on read (w32) got error code 5";
    const std::string last =
        "qfd_request_packet_receive: Failed to read daemon request packet: " + no_errno();
    for (int call = 1; call <= reads; ++call) {
        SCOPED_TRACE(call);
        open_with(rcpt_body_bytes);
        {
            call_watch watch;
            watch.fail("file_read", call, access_denied);
            EXPECT_EQ(qfd_request_packet_receive(stream), nullptr);
        }
        vc_close(stream);
        const lines got = log.errors();
        ASSERT_GE(got.size(), 2u);
        EXPECT_EQ(got.front(), error);
        EXPECT_EQ(got.back(), last);
        const bool is_flag = call == 5 || call == 8;
        EXPECT_EQ(got.size(), is_flag ? 2u : 3u);
    }
    open_with(rcpt_body_bytes);
    call_watch watch;
    watch.fail("file_read", reads + 1, access_denied);
    EXPECT_NE(request(qfd_request_packet_receive(stream)), nullptr);
    vc_close(stream);
}

// --- Responses ---

TEST_F(wire_test, responses) {
    static const struct {
        uint32_t result;
        const char *message, *spam_hit;
        std::string want;
    } cases[] = {
        {1, nullptr, nullptr, "\xEA\xF3\x01\x00\x00\x00\x00\x00\x00\x00"s},
        {0x01020304, "no", "require_helo",
         "\xEA\xF3\x04\x03\x02\x01\x02\x00no\x0C\x00require_helo"s},
        {1, "", "", "\xEA\xF3\x01\x00\x00\x00\x00\x00\x00\x00"s},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(qfd_response_packet_send(open_to_write(), c.result, c.message, c.spam_hit), 1);
        const std::string bytes = written();
        EXPECT_EQ(bytes, c.want);

        const response packet(qfd_response_packet_receive(open_with(bytes)));
        vc_close(stream);
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->id, QFD_PACKET_ID);
        EXPECT_EQ(packet->result, c.result);
        const bool absent = !c.message || !*c.message;
        EXPECT_STREQ(packet->message, absent ? nullptr : c.message);
        EXPECT_EQ(packet->message_len, absent ? 0 : strlen(c.message));
        EXPECT_STREQ(packet->spam_hit, absent ? nullptr : c.spam_hit);
        EXPECT_EQ(packet->spam_hit_len, absent ? 0 : strlen(c.spam_hit));
    }
}

// Kept on purpose.
TEST_F(wire_test, a_message_of_70000_bytes_is_sent_with_its_first_4464) {
    const std::string message(70000, 'm');
    EXPECT_EQ(qfd_response_packet_send(open_to_write(), 1, message.c_str(), nullptr), 1);
    EXPECT_EQ(written(),
              "\xEA\xF3\x01\x00\x00\x00\x70\x11"s + message.substr(0, 4464) + "\x00\x00"s);
}

TEST_F(wire_test, sending_a_response_fails) {
    EXPECT_EQ(qfd_response_packet_send(vc_invalid_handle, 1, "m", "h"), 0);
    expect_errors({"qfd_response_packet_send: Invalid argument"});
    EXPECT_EQ(qfd_response_packet_send(open_to_write(), 0, "m", "h"), 0);
    expect_errors({"qfd_response_packet_send: Invalid argument"});
    EXPECT_EQ(written(), "");
    constexpr int writes = 6;
    for (int call = 1; call <= writes; ++call) {
        open_to_write();
        {
            call_watch watch;
            watch.fail("file_write", call, access_denied);
            EXPECT_EQ(qfd_response_packet_send(stream, 1, "m", "h"), 0) << "write " << call;
        }
        expect_errors(
            {"vc_write: fatal error on block write (w32) got error code 5",
             "qfd_response_packet_send: Failed to write daemon response packet: " + no_errno()});
        vc_close(stream);
    }
}

TEST_F(wire_test, a_response_that_is_refused) {
    static const struct {
        const char *name;
        std::string bytes;
        const char *error;
    } cases[] = {
        {"result 0", "\xEA\xF3\x00\x00\x00\x00\x00\x00\x00\x00"s,
         "Invalid daemon response packet id [62442] or result [0]"},
        {"wrong id", "\x01\x02\x05\x00\x00\x00\x01\x00m\x00\x00"s,
         "Invalid daemon response packet id [513] or result [5]"},
        {"nothing", ""s, "Invalid daemon response packet id [0] or result [0]"},
        {"ends after the id", "\xEA\xF3"s,
         "Invalid daemon response packet id [62442] or result [0]"},
        {"wrong id with a large result", "\x00\x00\xFE\xFF\xFF\xFF"s,
         "Invalid daemon response packet id [0] or result [-2]"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(qfd_response_packet_receive(open_with(c.bytes)), nullptr);
        expect_errors({std::string("qfd_response_packet_receive: ") + c.error});
        vc_close(stream);
    }
}

TEST_F(wire_test, receiving_a_response_fails) {
    EXPECT_EQ(qfd_response_packet_receive(vc_invalid_handle), nullptr);
    expect_errors({"qfd_response_packet_receive: Invalid argument"});
    constexpr int reads = 6;
    for (int call = 1; call <= reads; ++call) {
        SCOPED_TRACE(call);
        open_with("\xEA\xF3\x01\x00\x00\x00\x01\x00m\x01\x00h"s);
        {
            call_watch watch;
            watch.fail("file_read", call, access_denied);
            EXPECT_EQ(qfd_response_packet_receive(stream), nullptr);
        }
        vc_close(stream);
        const lines got = log.errors();
        ASSERT_FALSE(got.empty());
        EXPECT_EQ(got.back(),
                  "qfd_response_packet_receive: Failed to read daemon response packet: " +
                      no_errno());
    }
}

} // namespace quillfence::testing
