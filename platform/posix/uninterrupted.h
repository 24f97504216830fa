// Signals do not end a system call. Internal to the Linux side.
#pragma once

#include <cerrno>

namespace quillfence::platform {

// Calls again for as long as a signal interrupts the call.
template <class call_type>
auto uninterrupted(call_type call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace quillfence::platform
