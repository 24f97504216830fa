#include "list_search.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "address_text.h"
#include "engine_messages.h"
#include "folder.h"
#include "line_reader.h"
#include "list_line.h"
#include "open_file.h"
#include "quillfence-iprange.h"
#include "range_records.h"
#include "text.h"

namespace quillfence::data_tool {

// What a line of a list is compared as, for people.
static const char *way_of(const configuration_file &list, const char *pattern) {
    const bool is_plain =
        list.matcher == __wildcardmatch && !std::strchr(pattern, '*') && is_plain_pattern(pattern);
    return is_plain ? "plain" : matcher_name(list);
}

// The lines of one list that match, as the engine reads and counts them.
void find_in_list(const std::string &path, const configuration_file &list, const std::string &value,
                  std::vector<list_match> *matches) {
    if (!may_be_file(path)) {
        return;
    }
    open_file file;
    if (const uint32_t error = file.open(path)) {
        throw failure(file_error(path, error));
    }
    line_reader in;
    begin_lines(&in, file.handle(), longest_entry, true);
    uint32_t length = 0;
    for (uint32_t number = 1; const char *const line = next_line(&in, &length); ++number) {
        const char *const pattern = pattern_of_line(line);
        if (!is_comment(pattern) && list.matcher(pattern, value.c_str()) == 0) {
            matches->push_back(
                {.file = path, .line = number, .entry = pattern, .how = way_of(list, pattern)});
        }
    }
    if (in.error) {
        throw failure(file_error(path, in.error));
    }
}

// As the engine sees it, which finds these two addresses nowhere.
static bool holds(const range_record &record, uint32_t address) {
    return record.valid && address != 0 && address != 0xFFFFFFFF && record.low <= address &&
           address <= record.high;
}

// Nothing in it stops the engine's search.
static bool is_sound(const range_records &ranges) {
    return ranges.state == range_state::current && ranges.records.size() == ranges.counted &&
           std::all_of(ranges.records.begin(), ranges.records.end(),
                       [](const range_record &record) { return record.valid; });
}

// The engine's own answer; *problem receives what it can't make of the file. Of a sound file it
// must be the answer that the records give.
static bool engine_finds(const std::string &path, const range_records &ranges,
                         const std::string &value, bool in_records, std::string *problem) {
    const path_parts parts = parts_of(path);
    engine_messages messages;
    const bool listed = file_contains_ip_range_match(parts.name.c_str(), value.c_str(),
                                                     parts.directory.c_str()) != 0;
    *problem = messages.take();
    if (is_sound(ranges) && listed != in_records) {
        throw failure(path + ": the engine's answer for " + value + " is another one" +
                      (problem->empty() ? "; has the file changed meanwhile?" : ": " + *problem));
    }
    return listed;
}

std::string find_in_ranges(const std::string &path, const std::string &value,
                           std::vector<list_match> *matches) {
    const std::optional<uint32_t> address = parse_address(value);
    if (!address || !may_be_file(path)) {
        return {};
    }
    const range_records read = read_ranges(path);
    if (read.error) {
        throw failure(file_error(path, read.error));
    }
    const bool in_records =
        std::any_of(read.records.begin(), read.records.end(),
                    [&](const range_record &record) { return holds(record, *address); });
    std::string problem;
    const bool listed = engine_finds(path, read, value, in_records, &problem);
    for (const range_record &record : read.records) {
        if (listed && holds(record, *address)) {
            matches->push_back({.file = path,
                                .record = record.number,
                                .entry = range_text(record),
                                .comment = record.comment,
                                .how = "range"});
        }
    }
    return problem;
}

// Whether anything matched.
static bool find_in(const std::string &directory, const configuration_file &list,
                    const std::string &value, std::vector<list_match> *matches) {
    const size_t before = matches->size();
    find_in_list(joined(directory, name_below(directory, path_in_base(list))), list, value,
                 matches);
    if (list.range_file) {
        const std::string path = joined(directory, name_below(directory, list.range_file));
        const std::string problem = find_in_ranges(path, value, matches);
        if (!problem.empty()) {
            complain(problem);
        }
    }
    return matches->size() != before;
}

static bool has_name(const std::vector<std::string> &names, const char *name) {
    return name && std::find(names.begin(), names.end(), name) != names.end();
}

found_entries find_everywhere(const std::string &directory, const std::string &value) {
    const engine_messages silent;
    found_entries all;
    std::vector<std::string> matching;
    for (const configuration_file &list : list_files()) {
        const bool matches = find_in(directory, list, value, &all.matches);
        engine_messages::require_memory();
        if (!matches) {
            continue;
        }
        if (has_name(matching, list.opposite)) {
            all.opposites.emplace_back(list.opposite, path_in_base(list));
        }
        matching.push_back(path_in_base(list));
    }
    return all;
}

} // namespace quillfence::data_tool
