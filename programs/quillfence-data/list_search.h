// The entries of the list and range files that match a value.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "data_program.h"
#include "list_files.h"

namespace quillfence::data_tool {

// An entry that matches.
struct list_match {
    std::string file;
    uint32_t line = 0;   // of a list
    uint32_t record = 0; // of a range file
    std::string entry;
    std::string comment{};
    const char *how; // it was compared: "plain" for an entry of a list with wildcards that has none
};

// Appends every entry of one list of a folder that matches the value, and of its range file;
// whether there are any. The lines are read, counted and compared as a lookup of the engine does
// it. Throws a failure for a file that can't be read; what the engine can't make of a range file is
// complained about.
bool find_in(const std::string &directory, const configuration_file &list, const std::string &value,
             std::vector<list_match> *matches);

struct found_entries {
    std::vector<list_match> matches;
    // Opposite lists that both match, by name; the one that comes first in front.
    std::vector<std::pair<const char *, const char *>> opposites{};
};

// The same of all lists.
found_entries find_everywhere(const std::string &directory, const std::string &value);

} // namespace quillfence::data_tool
