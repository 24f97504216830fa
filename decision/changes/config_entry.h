// An element of a file of the configuration, as hits and changes name it.
#pragma once

#include <cstdint>
#include <string>

namespace quillfence::decision {

// A line, or another element, of a file of the configuration.
struct config_entry {
    std::string file;   // "" when no file is behind it
    uint32_t place = 0; // a list's line, a range's record, an expression's number; 0: unknown
    std::string text;   // "" for the file as a whole
    bool operator==(const config_entry &) const = default;
};

} // namespace quillfence::decision
