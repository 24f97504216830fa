// The contents of a folder.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quillfence::data_files {

// The names of the files in a folder, folders left out, in byte order. 0 or a Win32 error number;
// what was listed up to an error is there.
uint32_t list_folder(const std::string &folder, std::vector<std::string> *names);
// Likewise of the folders in it, "." and ".." left out.
uint32_t list_folders(const std::string &folder, std::vector<std::string> *names);

// The name, such as "control/enabled", under which the engine finds a file that lies below this
// folder, if the folder stands below a drive for it: as it is when there is such a file, else the
// first in byte order of those that differ in letter case alone, and likewise for each folder on
// the way. What is not there at all keeps the letters that it was given, and so does a name below a
// folder that has a drive, where the system itself finds it.
std::string name_below(const std::string &folder, const std::string &name);

} // namespace quillfence::data_files
