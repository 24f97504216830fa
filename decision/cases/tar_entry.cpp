#include "tar_entry.h"

#include <algorithm>
#include <array>

#include "text.h"
#include "utf8.h"

namespace quillfence::decision {

static constexpr size_t longest_part = 255;

static bool is_digit_from_1(char c) {
    return c >= '1' && c <= '9';
}

// "con", "com1.txt": Windows takes them for devices, in any folder.
static bool is_device(std::string_view part) {
    const std::string stem = data_files::lower(part.substr(0, part.find('.')));
    static constexpr std::array<std::string_view, 4> devices = {"con", "prn", "aux", "nul"};
    return std::find(devices.begin(), devices.end(), stem) != devices.end() ||
           (stem.size() == 4 && (stem.starts_with("com") || stem.starts_with("lpt")) &&
            is_digit_from_1(stem[3]));
}

static const char *why_no_part(std::string_view part) {
    if (part.empty()) {
        return "has a folder without a name";
    }
    if (part == "..") {
        return "leads out of its folder with \"..\"";
    }
    if (part == ".") {
        return "has \".\" for a folder";
    }
    if (part.back() == '.' || part.back() == ' ') {
        return "has a name that ends in a dot or blank, which Windows drops";
    }
    if (is_device(part)) {
        return "has the name of a device on Windows";
    }
    return part.size() > longest_part ? "has a name of more than 255 bytes" : "";
}

static const char *why_no_character(std::string_view name) {
    for (const char c : name) {
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7F') {
            return "has a control character in its name";
        }
        if (c == ':') {
            return "has a colon in its name, which is a drive or a stream on Windows";
        }
        if (c == '\\') {
            return "has a backslash in its name";
        }
        if (c == '<' || c == '>' || c == '"' || c == '|' || c == '?' || c == '*') {
            return "has a character in its name that Windows has in none";
        }
    }
    return "";
}

static bool is_utf8(std::string_view text) {
    while (const size_t length = utf8_sequence(text)) {
        text.remove_prefix(length);
    }
    return text.empty();
}

std::string why_no_tar_name(std::string_view name) {
    if (name.empty()) {
        return "has no name";
    }
    if (name.front() == '/') {
        return "has an absolute name";
    }
    if (name.size() > longest_tar_name) {
        return "has a name of more than " + std::to_string(longest_tar_name) + " bytes";
    }
    if (!is_utf8(name)) {
        return "has a name that is not UTF-8";
    }
    if (const char *const why = why_no_character(name); *why) {
        return why;
    }
    for (size_t begin = 0; begin <= name.size();) {
        const size_t end = std::min(name.find('/', begin), name.size());
        if (const char *const why = why_no_part(name.substr(begin, end - begin)); *why) {
            return why;
        }
        begin = end + 1;
    }
    return {};
}

std::string why_beyond(const tar_entry &entry, const tar_limits &limits, uint64_t entries,
                       uint64_t total) {
    if (entries >= limits.entries) {
        return "is one more than " + std::to_string(limits.entries) + " entries";
    }
    if (entry.size > limits.file_size) {
        return "has " + std::to_string(entry.size) + " bytes, more than the " +
               std::to_string(limits.file_size) + " that a file may have";
    }
    if (entry.size > limits.total_size - total) { // total is never above it
        return "makes it more than " + std::to_string(limits.total_size) + " bytes";
    }
    return {};
}

// --- names together ---

std::string tar_names::add_part(std::string_view name, bool folder, bool listed) {
    const auto [at, is_new] =
        names_.try_emplace(data_files::lower(name), known{std::string(name), folder, listed});
    known &there = at->second;
    if (is_new) {
        return {};
    }
    if (there.name != name) {
        return "differs from " + data_files::quoted(there.name) + " in letter case alone";
    }
    if (there.folder != folder) {
        return data_files::quoted(name) + " is a file and a folder";
    }
    if (listed && there.listed) {
        return "is there twice";
    }
    there.listed = there.listed || listed;
    return {};
}

std::string tar_names::add(std::string_view name, bool folder) {
    for (size_t end = name.find('/'); end != std::string_view::npos;
         end = name.find('/', end + 1)) {
        if (std::string why = add_part(name.substr(0, end), true, false); !why.empty()) {
            return why;
        }
    }
    return add_part(name, folder, true);
}

} // namespace quillfence::decision
