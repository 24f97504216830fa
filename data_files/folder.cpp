#include "folder.h"

#include <algorithm>
#include <memory>
#include <string_view>

#include "platform/directory.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "text.h"

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

static bool exists(const std::string &path) {
    uint32_t attributes = 0;
    return platform::path_attributes(path.c_str(), &attributes) == platform::error_none;
}

// The same for a name without folders.
static std::string name_in(const std::string &folder, const std::string &name) {
    if (exists(joined(folder, name))) {
        return name;
    }
    std::vector<std::string> names;
    std::vector<std::string> folders;
    list_folder(folder, &names);
    list_folders(folder, &folders);
    names.insert(names.end(), folders.begin(), folders.end());
    std::string found = name;
    for (const std::string &one : names) {
        const bool is_first = found == name || one < found;
        if (one != name && lower(one) == lower(name) && is_first) {
            found = one;
        }
    }
    return found;
}

std::string name_below(const std::string &folder, const std::string &name) {
    const bool has_drive = folder.size() > 1 && folder[1] == ':';
    if (has_drive || exists(joined(folder, name))) {
        return name;
    }
    std::string found;
    for (size_t at = 0; at <= name.size();) {
        const size_t end = std::min(name.find('/', at), name.size());
        const std::string part = name.substr(at, end - at);
        found = joined(found, name_in(joined(folder, found), part));
        at = end + 1;
    }
    return found;
}

} // namespace quillfence::data_files
