// Sessions and packets without memory: every operation fails whole, reports it, and leaks nothing
// (as the address sanitizer sees it).
#include <cerrno>
#include <cstring>
#include <string>

#include "drive_c.h"
#include "failing_memory.h"
#include "qfd-packet.h"
#include "vc_nulltermlist.h"

namespace quillfence::testing {
namespace {

std::string no_memory(const char *function) {
    return std::string(function) + ": " + strerror(ENOMEM);
}

class session_memory : public drive_test {
  protected:
    void SetUp() override {
        packet = qfd_request_packet_from_args(10, arguments);
        ASSERT_NE(packet, nullptr);
        state = qfd_request_packet_to_smtp_state(packet);
        ASSERT_NE(state, nullptr);
    }
    void TearDown() override {
        qfd_request_packet_free(packet);
        free_smtp_state(state);
    }
    char texts[10][20] = {"program", "R", "2001:db8::1", "25",      "1",
                          "carol",   "1", "mx.a.org",    "s@a.org", "r@b.net"};
    char *arguments[11] = {texts[0], texts[1], texts[2], texts[3], texts[4], texts[5],
                           texts[6], texts[7], texts[8], texts[9], nullptr};
    qfd_request_packet *packet = nullptr;
    smtp_state *state = nullptr;
};

TEST_F(session_memory, a_new_session) {
    smtp_state *made = nullptr;
    const unsigned failures =
        sweep_allocations([&] { made = new_smtp_state(); },
                          [&](unsigned) {
                              EXPECT_EQ(made, nullptr);
                              EXPECT_EQ(log.errors(), lines{no_memory("new_smtp_state")});
                          });
    EXPECT_EQ(failures, 1u);
    free_smtp_state(made);
}

TEST_F(session_memory, a_request_from_arguments) {
    qfd_request_packet *made = nullptr;
    const unsigned failures = sweep_allocations(
        [&] { made = qfd_request_packet_from_args(10, arguments); },
        [&](unsigned n) {
            EXPECT_EQ(made, nullptr) << n;
            EXPECT_EQ(log.errors(), lines{no_memory("qfd_request_packet_from_args")}) << n;
        });
    EXPECT_EQ(failures, 7u); // the record and six texts
    qfd_request_packet_free(made);
}

TEST_F(session_memory, a_request_from_a_session) {
    qfd_request_packet *made = nullptr;
    const unsigned failures = sweep_allocations(
        [&] { made = qfd_request_packet_from_smtp_state(state); },
        [&](unsigned n) {
            EXPECT_EQ(made, nullptr) << n;
            EXPECT_EQ(log.errors(), lines{no_memory("qfd_request_packet_from_smtp_state")}) << n;
        });
    EXPECT_EQ(failures, 7u);
    qfd_request_packet_free(made);
}

TEST_F(session_memory, a_session_from_a_request) {
    smtp_state *made = nullptr;
    const unsigned failures =
        sweep_allocations([&] { made = qfd_request_packet_to_smtp_state(packet); },
                          [&](unsigned n) {
                              EXPECT_EQ(made, nullptr) << n;
                              const std::string own = no_memory("qfd_request_packet_to_smtp_state");
                              const lines first = {no_memory("new_smtp_state"), own};
                              EXPECT_EQ(log.errors(), n == 1 ? first : lines{own});
                          });
    EXPECT_EQ(failures, 7u);
    free_smtp_state(made);
}

// Opens the stream, receives with the n-th allocation failing, closes it.
template <class Record, class Receive, class Release>
unsigned sweep_receipt(const drive_c &drive, log_capture &log, const std::string &bytes,
                       const char *function, const char *read_failure, Receive receive,
                       Release release) {
    drive.write("c:/quillfence/stream", bytes);
    const vc_handle stream = vc_open_ex("c:/quillfence/stream", 0, 0, 0);
    Record *received = nullptr;
    const unsigned failures = sweep_allocations(
        [&] {
            vc_seek(stream, 0, 0);
            received = receive(stream);
        },
        [&](unsigned n) {
            EXPECT_EQ(received, nullptr) << n;
            const lines want = n == 1
                                   ? lines{no_memory(function)}
                                   : lines{no_memory("qfd_packet_read_string"),
                                           std::string(function) + read_failure + strerror(ENOMEM)};
            EXPECT_EQ(log.errors(), want) << n;
        });
    EXPECT_NE(received, nullptr);
    release(received);
    vc_close(stream);
    return failures;
}

TEST_F(session_memory, a_received_request) {
    using namespace std::string_literals;
    EXPECT_EQ(sweep_receipt<qfd_request_packet>(
                  drive, log, "\x01\x00i\x01\x00p\x01\x01\x00u\x01\x01\x00h\x01\x00s\x01\x00r"s,
                  "qfd_request_packet_receive", ": Failed to read daemon request packet: ",
                  qfd_request_packet_receive, qfd_request_packet_free),
              7u);
}

TEST_F(session_memory, a_received_response) {
    using namespace std::string_literals;
    EXPECT_EQ(sweep_receipt<qfd_response_packet>(
                  drive, log, "\xEA\xF3\x01\x00\x00\x00\x01\x00m\x01\x00h"s,
                  "qfd_response_packet_receive", ": Failed to read daemon response packet: ",
                  qfd_response_packet_receive, qfd_response_packet_free),
              3u);
}

TEST_F(session_memory, sending_needs_none) {
    drive.write("c:/quillfence/stream", "");
    const vc_handle stream = vc_open_ex("c:/quillfence/stream", 0, 1, 0);
    bool fired;
    {
        const failing_allocation failing(1);
        EXPECT_EQ(qfd_request_packet_send(stream, packet), 1);
        EXPECT_EQ(qfd_response_packet_send(stream, 1, "m", "h"), 1);
        fired = failing.fired();
    }
    EXPECT_FALSE(fired);
    vc_close(stream);
}

} // namespace
} // namespace quillfence::testing
