// The contents of a folder.
#pragma once

#include <string>
#include <vector>

namespace quillfence::data_tool {

// The names of the files in a folder, folders left out, in byte order; none when it is missing or
// can't be listed.
std::vector<std::string> files_of(const std::string &folder);

} // namespace quillfence::data_tool
