// The subcommand policyd: its arguments, and the run, which there is on Linux alone.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "configured_engine.h"
#include "program.h"

namespace quillfence::programs {

struct policyd_arguments {
    std::vector<std::string> listen; // unix:PATH, inet:ADDRESS:PORT
    std::string socket_mode = "0660";
    bool on_standard_streams = false;
    uint64_t connections = 1000;
    double idle = 600; // seconds

    configuration_arguments configuration; // without what-if
    std::string dns;                       // "" and "live", or "off"
    std::string server;                    // "" for the system's
    bool any_answer_lists = false;         // the guards are off: of block lists,
    bool refused_is_missing = false;       // and of REFUSED

    std::optional<std::string> enforce; // names of rules, or "all"
    std::string warn;                   // names of rules; "" for none
    std::string exempt_action = "DUNNO";
    double deadline = 8; // seconds
    uint64_t jobs = 0;   // threads that judge; 0: the processors
    bool counters = false;

    std::string log; // the file; "" for none
    bool no_log = false;
    std::string metrics; // the file; "" for none
    bool check = false;
};

// Serves until it is told to end. Where it can't run it says so (policyd_elsewhere.cpp).
exit_status policyd(const policyd_arguments &arguments);

} // namespace quillfence::programs
