// The subcommand policyd: its arguments, and the run, which there is on Linux alone.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "program.h"

namespace quillfence::programs {

struct policyd_arguments {
    std::vector<std::string> listen; // unix:PATH, inet:ADDRESS:PORT
    std::string socket_mode = "0660";
    bool on_standard_streams = false;
    uint64_t connections = 1000;
    double idle = 600; // seconds
};

// Serves until it is told to end. Where it can't run it says so (policyd_elsewhere.cpp).
exit_status policyd(const policyd_arguments &arguments);

} // namespace quillfence::programs
