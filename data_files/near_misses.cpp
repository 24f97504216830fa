#include "near_misses.h"

#include <optional>

#include "address_text.h"
#include "call_context.h"
#include "folder.h"
#include "list_files.h"
#include "list_line.h"
#include "open_file.h"
#include "text.h"

namespace quillfence::data_files {
namespace {

struct reason {
    const char *what;
    std::string text;
};

std::string without_trailing_space(std::string text) {
    while (!text.empty() && is_space(text.back())) {
        text.pop_back();
    }
    return text;
}

bool ends_in(const std::string &text, const std::string &end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// All texts in lower case.
std::optional<reason> near_address(const std::string &entry, const std::string &value) {
    const size_t at = value.rfind('@');
    if (at == std::string::npos) {
        return std::nullopt;
    }
    const std::string domain = value.substr(at + 1);
    if (entry == domain || entry == '@' + domain) {
        return reason{"whole_domain", "for a whole domain write *@" + domain};
    }
    const std::string parent = entry.compare(0, 2, "*@") == 0 ? entry.substr(2) : entry;
    const bool is_domain = !parent.empty() && parent.find_first_of("*@") == std::string::npos &&
                           parent.find('.') != std::string::npos;
    if (is_domain && ends_in(domain, '.' + parent)) {
        return reason{"parent_domain",
                      "stands for " + parent + " alone; for its subdomains write *@*." + parent};
    }
    return std::nullopt;
}

std::optional<reason> near_client(const std::string &entry, const std::string &value) {
    const std::optional<uint32_t> client = parse_address(value);
    if (!client || entry.find_first_of("/-") == std::string::npos) {
        return std::nullopt;
    }
    const address_line line = read_address_line(entry);
    if (line.is == address_line::kind::range && line.range.first <= *client &&
        *client <= line.range.last) {
        return reason{"network", "only single addresses match here; a network goes into the "
                                 "list's range file"};
    }
    return std::nullopt;
}

std::optional<reason> why_near(const std::string &entry, const std::string &value) {
    const std::string trimmed = without_trailing_space(entry);
    if (trimmed.size() != entry.size() && !trimmed.empty() &&
        (trimmed == value ||
         (is_plain_pattern(trimmed) && __wildcardmatch(trimmed.c_str(), value.c_str()) == 0))) {
        return reason{"trailing_blank", "ends in white space, which belongs to the entry"};
    }
    const std::optional<reason> client = near_client(entry, value);
    return client ? client : near_address(entry, value);
}

// Files beside this one whose names differ in letter case alone.
void add_other_cases(const std::string &path, std::vector<near_entry> *found) {
    const path_parts parts = parts_of(path);
    std::vector<std::string> names;
    if (list_folder(parts.directory, &names)) {
        return;
    }
    for (const std::string &name : names) {
        if (name != parts.name && lower(name) == lower(parts.name)) {
            found->push_back({"letter_case", "its name differs in letter case, and it is not read",
                              joined(parts.directory, name), 0, ""});
        }
    }
}

} // namespace

std::vector<near_entry> near_entries_in(const std::string &path, std::string_view bytes,
                                        const std::string &value) {
    std::vector<near_entry> found;
    const std::string wanted = lower(value);
    for (const text_line &line : lines_of(bytes)) {
        std::string_view text = line.text;
        if (!text.empty() && text.back() == '\r') {
            text.remove_suffix(1);
        }
        const std::string whole(text);
        const std::string entry = pattern_of_line(whole.c_str());
        if (is_comment(entry.c_str())) {
            continue;
        }
        if (const std::optional<reason> near = why_near(lower(entry), wanted)) {
            found.push_back({near->what, near->text, path, line.number, entry});
        }
        if (found.size() == most_near_entries) {
            break;
        }
    }
    return found;
}

std::vector<near_entry> near_entries(const std::string &path, const std::string &value) {
    std::vector<near_entry> found;
    open_file file;
    uint64_t size = 0;
    std::string bytes;
    const std::string from = path_to_read(path.c_str());
    if (!value.empty() && !file.open(from) && !file.size(&size) && size <= largest_near_list &&
        !read_file(from, &bytes)) {
        found = near_entries_in(path, bytes, value);
    }
    add_other_cases(path, &found);
    return found;
}

} // namespace quillfence::data_files
