// What becomes of connections, for whoever counts it.
#pragma once

#include <cstdint>

namespace quillfence::service {

enum class connection_event : uint8_t {
    opened,
    closed,   // once for each that was opened, whatever else is told about it
    refused,  // there were too many; it was never opened
    idle,     // said nothing for too long, and was closed
    too_long, // a line or a request beyond the bounds, and it was closed
    bad_end,  // ended within a request, or without its reply
};

} // namespace quillfence::service
