#include "folder.h"

#include <algorithm>

#include "platform/directory.h"
#include "platform/file.h"

namespace quillfence::data_tool {

std::vector<std::string> files_of(const std::string &folder) {
    std::vector<std::string> names;
    platform::directory_listing *listing = nullptr;
    if (platform::directory_open(folder.c_str(), &listing)) {
        return names;
    }
    platform::directory_entry entry = {};
    while (!platform::directory_next(listing, &entry)) {
        if (!(entry.attributes & platform::attribute_directory)) {
            names.emplace_back(entry.name);
        }
    }
    platform::directory_close(listing);
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace quillfence::data_tool
