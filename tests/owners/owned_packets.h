// Packets that go away with their scope.
#pragma once

#include <memory>

#include "qfd-packet.h"

namespace quillfence::testing {

struct packet_releaser {
    void operator()(qfd_request_packet *packet) const {
        qfd_request_packet_free(packet);
    }
    void operator()(qfd_response_packet *packet) const {
        qfd_response_packet_free(packet);
    }
};
using request = std::unique_ptr<qfd_request_packet, packet_releaser>;
using response = std::unique_ptr<qfd_response_packet, packet_releaser>;

} // namespace quillfence::testing
