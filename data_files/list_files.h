// What the tool knows of list files beyond the engine's operations on them: what their lines
// hold, and why a line can't do what it is there for.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "configuration.h"

namespace quillfence::data_files {

// The list files of the configuration tree.
std::vector<std::reference_wrapper<const configuration_file>> list_files();
// The one at this place below the base folder; null for a file that is none of them.
const configuration_file *find_list_file(std::string_view path);
// What the engine compares a list's lines with, for people.
const char *matcher_name(const configuration_file &list);
// How the names of range files end.
inline constexpr char range_suffix[] = ".range";

// The most characters of an entry that a lookup reads in one piece.
inline constexpr size_t longest_entry = 1022;

// Why an entry never does what it is there for; "" when nothing is wrong with it. The entry is
// without leading white space and holds no NUL.
std::string why_useless(file_kind kind, const std::string &entry);
// Why the engine can't compile an entry with a "*", or refuses what it compiled; "" when it can.
std::string why_not_compiled(const std::string &entry);
// Whether "*" is the only character of an entry that is not taken for itself.
bool is_plain_pattern(std::string_view entry);

} // namespace quillfence::data_files
