// What the engine asks the registry for, as an export of its own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quillfence::programs {

struct collected_registry {
    std::string bytes;                 // an export (.reg) that the engine reads; "" for no value
    uint32_t values = 0;               // that stand in it
    std::vector<std::string> failures; // keys that could not be read, with the reason
};

// The mail server's settings and its white list, and no other key.
collected_registry collect_registry();

} // namespace quillfence::programs
