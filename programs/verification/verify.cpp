#include "verify.h"

#include <algorithm>
#include <tuple>

#include "configuration.h"
#include "folder.h"
#include "text.h"

namespace quillfence::verification {

uint32_t count_of(const tree &in, severity level) {
    return static_cast<uint32_t>(
        std::count_if(in.findings.begin(), in.findings.end(),
                      [level](const finding &found) { return found.level() == level; }));
}

std::string tree::path(std::string_view file) const {
    return joined(base, file);
}

std::string tree::place(std::string_view file) const {
    const bool is_known = find_configuration_file(file) != nullptr;
    return is_known ? joined(base, name_below(base, std::string(file))) : path(file);
}

bool tree::has(std::string_view file) const {
    return may_be_file(place(file));
}

void tree::add(std::string_view file, uint32_t line, finding_id id, std::string text) {
    findings.push_back({std::string(file), line, id, std::move(text)});
}

void tree::add_failure(std::string_view file, finding_id id, const std::string &text,
                       uint32_t error) {
    const finding found = {std::string(file), 0, id, text + ": " + system_text(error)};
    if (std::find(findings.begin(), findings.end(), found) == findings.end()) {
        findings.push_back(found);
    }
}

bool tree::read(std::string_view file, std::string *bytes) {
    ++files;
    if (!read_again(file, bytes)) {
        return false;
    }
    if (bytes->starts_with("\xFF\xFE") || bytes->starts_with("\xFE\xFF")) {
        add(file, 0, "text-in-utf-16",
            "is a text in UTF-16, of which the engine makes nothing; save it as UTF-8 without a "
            "byte order mark");
        return false;
    }
    return true;
}

bool tree::read_again(std::string_view file, std::string *bytes) {
    const uint32_t error = read_file(place(file), bytes);
    if (error) {
        add_failure(file, "unreadable-file", "can't be read", error);
    }
    return !error;
}

range_records tree::ranges(std::string_view file) {
    range_records read = read_ranges(place(file));
    if (read.state == range_state::unreadable) {
        add_failure(file, "unreadable-file", "can't be read", read.error);
    }
    return read;
}

std::vector<std::string> tree::list(std::string_view folder) {
    std::vector<std::string> names;
    const uint32_t error = list_folder(place(folder), &names);
    if (error && !is_missing(error)) {
        add_failure(folder, "unreadable-folder", "can't be listed", error);
    }
    return names;
}

std::vector<std::string> tree::list_folders(std::string_view folder) const {
    std::vector<std::string> names;
    data_files::list_folders(place(folder), &names);
    return names;
}

tree verify_tree(const std::string &base) {
    require_directory(base, "give the one that holds \"control\" and \"bms\"");
    tree in{.base = base, .findings = {}};
    for (const auto verify_part :
         {verify_enabled, verify_names, verify_forgery_list, verify_lists, verify_ranges,
          verify_patterns, verify_block_maps, verify_counters, verify_other_files}) {
        verify_part(in);
    }
    std::stable_sort(in.findings.begin(), in.findings.end(),
                     [](const finding &a, const finding &b) {
                         return std::tie(a.file, a.line) < std::tie(b.file, b.line);
                     });
    return in;
}

} // namespace quillfence::verification
