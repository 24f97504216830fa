// Session records and packets when memory runs out.
#include "drive_c.h"
#include "heap_text.h"
#include "memory_sweep.h"
#include "owned_packets.h"
#include "owned_session.h"
#include "platform/file.h"

namespace quillfence::testing {
namespace {

using enum without_memory;

struct {
    owned_session state;
    testing::request request;
    testing::response response;
    char *text;
    vc_handle stream = vc_invalid_handle;
} it;

void release() {
    free(it.text);
    if (it.stream != vc_invalid_handle) {
        vc_close(it.stream);
    }
    it = {};
}

void nothing_made() {
    EXPECT_EQ(it.state, nullptr);
    EXPECT_EQ(it.request, nullptr);
    EXPECT_EQ(it.response, nullptr);
}

void have_request_of(const char *ip) {
    const char *arguments[] = {"replayer", "R", ip,          "25",          "1",
                               "user",     "1", "a.example", "a@b.example", "c@d.example"};
    it.request.reset(qfd_request_packet_from_args(10, const_cast<char **>(arguments)));
}
void have_request() {
    have_request_of("2001:db8::1");
}
void have_state() {
    have_request();
    it.state.reset(qfd_request_packet_to_smtp_state(it.request.get()));
    it.state->state = stage_rcpt;
    it.request.reset();
}

constexpr char request_file[] = "c:/quillfence/request";
constexpr char response_file[] = "c:/quillfence/response";

template <const char *path>
void have_stream() {
    it.stream = vc_open_ex(path, 0, 0, 0);
}

// The lines of an operation that tells of every failed allocation itself.
template <const char *function>
lines own_line(unsigned) {
    return {no_memory(function)};
}
constexpr char new_state[] = "new_smtp_state";
constexpr char from_args[] = "qfd_request_packet_from_args";
constexpr char from_state[] = "qfd_request_packet_from_smtp_state";

// The record is its receiver's, the texts are read by one function for all.
lines receipt_lines(unsigned n, const std::string &function, const char *read_failure) {
    if (n == 1) {
        return {no_memory(function.c_str())};
    }
    return {no_memory("qfd_packet_read_string"), function + read_failure + strerror(ENOMEM)};
}

class memory_session : public drive_test {
  protected:
    void SetUp() override {
        have_request();
        it.stream = vc_open_ex(request_file, 0, 1, 0);
        ASSERT_EQ(qfd_request_packet_send(it.stream, it.request.get()), 1);
        vc_close(it.stream);
        it.stream = vc_open_ex(response_file, 0, 1, 0);
        ASSERT_EQ(qfd_response_packet_send(it.stream, 1, "message", "hit"), 1);
        release();
    }
};

TEST_F(memory_session, records_and_packets) {
    static const memory_case cases[] = {
        {"new_smtp_state", nullptr,
         [] {
             it.state.reset(new_smtp_state());
             return it.state != nullptr;
         },
         nothing_made, fails, "", 1, own_line<new_state>},
        // The record and six texts.
        {"qfd_request_packet_from_args", nullptr,
         [] {
             have_request();
             return it.request != nullptr;
         },
         nothing_made, fails, "", 7, own_line<from_args>},
        {"qfd_request_packet_from_args, IPv4", nullptr,
         [] {
             have_request_of("192.0.2.1");
             return it.request != nullptr;
         },
         nothing_made, fails, "", 7, own_line<from_args>},
        {"qfd_request_packet_to_smtp_state", have_request,
         [] {
             it.state.reset(qfd_request_packet_to_smtp_state(it.request.get()));
             return it.state != nullptr;
         },
         [] {
             EXPECT_EQ(it.state, nullptr);
             EXPECT_EQ(shown(it.request->to), "c@d.example") << "the packet stays whole";
         },
         fails, "", 7,
         [](unsigned n) {
             const std::string own = no_memory("qfd_request_packet_to_smtp_state");
             return n == 1 ? lines{no_memory("new_smtp_state"), own} : lines{own};
         }},
        {"qfd_request_packet_from_smtp_state", have_state,
         [] {
             it.request.reset(qfd_request_packet_from_smtp_state(it.state.get()));
             return it.request != nullptr;
         },
         [] {
             EXPECT_EQ(it.request, nullptr);
             EXPECT_EQ(shown(it.state->rcpt_to), "c@d.example") << "the session stays whole";
         },
         fails, "", 7, own_line<from_state>},
        {"__process_ip_arg", nullptr,
         [] { return (it.text = __process_ip_arg("2001:db8:0::1")) != nullptr; }, nothing_made,
         fails_silently},
        {"qfd_request_packet_receive",
         [] {
             have_stream<request_file>();
             qfd_request_packet_receive_state(it.stream);
         },
         [] {
             it.request.reset(qfd_request_packet_receive(it.stream));
             return it.request != nullptr;
         },
         nothing_made, fails, "", 7,
         [](unsigned n) {
             return receipt_lines(n, "qfd_request_packet_receive",
                                  ": Failed to read daemon request packet: ");
         }},
        {"qfd_response_packet_receive", have_stream<response_file>,
         [] {
             it.response.reset(qfd_response_packet_receive(it.stream));
             return it.response != nullptr;
         },
         nothing_made, fails, "", 3,
         [](unsigned n) {
             return receipt_lines(n, "qfd_response_packet_receive",
                                  ": Failed to read daemon response packet: ");
         }},
    };
    sweep(log, cases, release);
}

TEST_F(memory_session, sending_needs_none) {
    have_request();
    it.stream = vc_open_ex(request_file, 0, 1, 0);
    bool fired;
    {
        const failing_allocation failing(1);
        EXPECT_EQ(qfd_request_packet_send(it.stream, it.request.get()), 1);
        EXPECT_EQ(qfd_response_packet_send(it.stream, 1, "m", "h"), 1);
        fired = failing.fired();
    }
    EXPECT_FALSE(fired);
    release();
}

} // namespace
} // namespace quillfence::testing
