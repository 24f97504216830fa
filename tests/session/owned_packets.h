// Packets and sessions that go away with their scope.
#pragma once

#include <memory>

#include "qfd-packet.h"

namespace quillfence::testing {

struct record_releaser {
    void operator()(qfd_request_packet *packet) const {
        qfd_request_packet_free(packet);
    }
    void operator()(qfd_response_packet *packet) const {
        qfd_response_packet_free(packet);
    }
    void operator()(smtp_state *state) const {
        free_smtp_state(state);
    }
};
using request = std::unique_ptr<qfd_request_packet, record_releaser>;
using response = std::unique_ptr<qfd_response_packet, record_releaser>;
using session = std::unique_ptr<smtp_state, record_releaser>;

} // namespace quillfence::testing
