// One side of a conversation in packets, for transport_test.py: what is sent goes to the standard
// output, what is received comes from the standard input.
//
//     packet_peer ask       sends a request, receives the response and tells what it says
//     packet_peer answer    receives a request, answers with what it holds
#include <cstdio>
#include <iterator>
#include <string>

#include "owned_packets.h"
#include "owned_session.h"
#include "platform/file.h"
#include "qfd-packet.h"
#include "smtp_state.h"

namespace quillfence::testing {
namespace {

const vc_handle input = platform::file_standard_input();
const vc_handle output = platform::file_standard_output();

// The longest text that a packet can carry.
const std::string long_helo(65535, 'h');

int ask() {
    const char *const arguments[] = {
        "packet_peer", "R", "192.0.2.1",         "4711",           "1", "carol",
        "0",           "",  "alice@example.org", "bob@example.net"};
    char *values[std::size(arguments)];
    for (size_t i = 0; i < std::size(arguments); ++i) {
        values[i] = const_cast<char *>(arguments[i]);
    }
    std::string helo = long_helo;
    values[7] = helo.data();
    const request sent(qfd_request_packet_from_args(static_cast<int>(std::size(values)), values));
    if (!sent || !qfd_request_packet_send(output, sent.get())) {
        return 2;
    }
    const response received(qfd_response_packet_receive(input));
    if (!received) {
        return 3;
    }
    fprintf(stderr, "result %u message [%s] spam hit [%s]\n", received->result,
            received->message ? received->message : "none",
            received->spam_hit ? received->spam_hit : "none");
    return 0;
}

int answer() {
    const uint8_t state = qfd_request_packet_receive_state(input);
    const request received(state ? qfd_request_packet_receive(input) : nullptr);
    if (!received) {
        return 4;
    }
    received->id = QFD_PACKET_ID;
    received->state = state;
    const owned_session state_record(qfd_request_packet_to_smtp_state(received.get()));
    if (!state_record) {
        return 5;
    }
    const smtp_state *told = state_record.get();
    const std::string message = std::string(told->ip) + " " + told->port + " " + told->auth_user +
                                " " + std::to_string(told->tls) + " " +
                                (told->helo == long_helo ? "long" : "damaged") + " " +
                                told->mail_from + " " + told->rcpt_to;
    return qfd_response_packet_send(output, 7, message.c_str(), "require_helo") ? 0 : 6;
}

} // namespace
} // namespace quillfence::testing

int main(int argc, char **argv) {
    using namespace quillfence;
    platform::prepare_standard_streams();
    const std::string role = argc == 2 ? argv[1] : "";
    return role == "ask" ? testing::ask() : role == "answer" ? testing::answer() : 1;
}
