#include "folder.h"

#include <algorithm>
#include <memory>
#include <string_view>

#include "platform/directory.h"
#include "platform/error_numbers.h"
#include "platform/file.h"

namespace quillfence::data_files {

static uint32_t list(const std::string &folder, bool folders, std::vector<std::string> *names) {
    names->clear();
    platform::directory_listing *opened = nullptr;
    if (const uint32_t error = platform::directory_open(folder.c_str(), &opened)) {
        return error;
    }
    const std::unique_ptr<platform::directory_listing, decltype(&platform::directory_close)>
        listing(opened, platform::directory_close);
    platform::directory_entry entry = {};
    uint32_t error = 0;
    while (!(error = platform::directory_next(listing.get(), &entry))) {
        const bool is_folder = (entry.attributes & platform::attribute_directory) != 0;
        const std::string_view name = entry.name;
        if (is_folder == folders && name != "." && name != "..") {
            names->emplace_back(name);
        }
    }
    std::sort(names->begin(), names->end());
    return error == platform::error_no_more_files ? 0 : error;
}

uint32_t list_folder(const std::string &folder, std::vector<std::string> *names) {
    return list(folder, false, names);
}

uint32_t list_folders(const std::string &folder, std::vector<std::string> *names) {
    return list(folder, true, names);
}

} // namespace quillfence::data_files
