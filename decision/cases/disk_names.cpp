#include "disk_names.h"

#include <algorithm>

#include "platform/directory.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "text.h"

namespace quillfence::decision {

static constexpr std::string_view no_drive = "root";

static bool is_slash(char c) {
    return c == '/' || c == '\\';
}

static bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

static bool has_drive(std::string_view path) {
    return path.size() > 2 && is_letter(path[0]) && path[1] == ':' && is_slash(path[2]);
}

// The parts of a path behind its root, without empty ones and ".", and with those gone that ".."
// takes back. False when it leads above the root.
static bool take_parts(std::string_view path, bool backslashes, std::vector<std::string> *parts) {
    const auto ends = [&](char c) { return c == '/' || (backslashes && c == '\\'); };
    for (auto at = path.begin(); at != path.end();) {
        const auto end = std::find_if(at, path.end(), ends);
        const std::string part(at, end);
        at = end == path.end() ? end : end + 1;
        if (part == "..") {
            if (parts->empty()) {
                return false;
            }
            parts->pop_back();
        } else if (!part.empty() && part != ".") {
            parts->push_back(part);
        }
    }
    return true;
}

std::string archive_name(std::string_view path) {
    const bool drive = has_drive(path);
    const bool rooted = path.starts_with('/') && !path.starts_with("//");
    std::vector<std::string> parts;
    if ((!drive && !rooted) || !take_parts(path.substr(drive ? 2 : 1), drive, &parts)) {
        return {};
    }
    std::string name = drive ? data_files::lower(path.substr(0, 1)) : std::string(no_drive);
    for (const std::string &part : parts) {
        name += '/' + part;
    }
    return name;
}

// --- what is on the disk ------------------------------------------------------------------------

static disk_names::listing listing_of(const std::string &folder) {
    disk_names::listing found;
    platform::directory_listing *opened = nullptr;
    if ((found.error = platform::directory_open(folder.c_str(), &opened))) {
        return found;
    }
    platform::directory_entry entry = {};
    while (!(found.error = platform::directory_next(opened, &entry))) {
        const std::string name = entry.name;
        if (name != "." && name != "..") {
            found.names.push_back({name, (entry.attributes & platform::attribute_directory) != 0});
        }
    }
    platform::directory_close(opened);
    found.error = found.error == platform::error_no_more_files ? 0 : found.error;
    std::sort(found.names.begin(), found.names.end(),
              [](const auto &a, const auto &b) { return a.name < b.name; });
    return found;
}

const disk_names::listing &disk_names::in_folder(const std::string &folder) {
    const auto known = folders_.find(folder);
    return known != folders_.end() ? known->second
                                   : folders_.emplace(folder, listing_of(folder)).first->second;
}

// The exact name, else the first that differs in letter case alone, as the engine finds it.
static std::string spelled_in(const std::vector<disk_names::listed> &folder,
                              const std::string &name) {
    std::string found;
    for (const disk_names::listed &each : folder) {
        if (each.name == name) {
            return name;
        }
        if (found.empty() && data_files::lower(each.name) == data_files::lower(name)) {
            found = each.name;
        }
    }
    return found.empty() ? name : found;
}

std::string disk_names::spelled_below(const std::string &folder, const std::string &name) {
    std::string spelled;
    for (size_t begin = 0; begin < name.size();) {
        const size_t end = std::min(name.find('/', begin), name.size());
        const std::string above = spelled.empty() ? folder : data_files::joined(folder, spelled);
        spelled = data_files::joined(
            spelled, spelled_in(in_folder(above + '/').names, name.substr(begin, end - begin)));
        begin = end + 1;
    }
    return spelled;
}

std::string disk_names::spelled(const std::string &name) {
    if (name.size() < 2 || name[1] != '/') {
        return name;
    }
    return data_files::joined(name.substr(0, 1),
                              spelled_below(name.substr(0, 1) + ":", name.substr(2)));
}

} // namespace quillfence::decision
