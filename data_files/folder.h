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

} // namespace quillfence::data_files
