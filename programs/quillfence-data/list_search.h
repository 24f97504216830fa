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

// Appends the lines of one list that match the value. They are read, counted and compared as a
// lookup of the engine does it. A missing list has none. Throws a failure when it can't be read.
void find_in_list(const std::string &path, const configuration_file &list, const std::string &value,
                  std::vector<list_match> *matches);
// The same of the records of a range file. Returns what the engine can't make of the file; "" when
// there is nothing wrong with it.
std::string find_in_ranges(const std::string &path, const std::string &value,
                           std::vector<list_match> *matches);

struct found_entries {
    std::vector<list_match> matches;
    // Opposite lists that both match, by name; the one that comes first in front.
    std::vector<std::pair<const char *, const char *>> opposites{};
};

// All lists of a folder, and their range files; what is wrong with these is complained about.
found_entries find_everywhere(const std::string &directory, const std::string &value);

} // namespace quillfence::data_tool
