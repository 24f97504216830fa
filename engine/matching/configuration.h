// The configuration tree: every file below c:/quillfence that the engine reads or writes by its
// name, in one table. Whoever needs a file takes it from here, so that its place, the way its lines
// are compared and its companions are told once. A name that is not in the table does not compile:
//
//     static constexpr const configuration_file &list = configured("from_whitelist");
//
// Not in the table: the block maps, which lie in c:/quillfence/bms under the names that the lists
// of maps give them, and what the mail server keeps elsewhere.
#pragma once

#include <cstdint>
#include <string_view>

#include "quillfence-file.h"
#include "vc_text.h"

namespace quillfence {

// The base folder, as a session's base directory, and the folders in it.
inline constexpr char quillfence_base_dir[] = "c:/quillfence/";
inline constexpr char quillfence_control_dir[] = "c:/quillfence/control";
inline constexpr char quillfence_block_maps_dir[] = "c:/quillfence/bms/";
inline constexpr char quillfence_log_dir[] = "c:/quillfence/log/";

enum class file_kind : uint8_t {
    on_off,          // a number; 1 is on
    rule_names,      // one name a line, compared exactly
    map_names,       // likewise, of block maps
    zone_names,      // likewise, of DNS block lists
    addresses,       // a list of mail addresses
    ips,             // a list of client addresses
    other_list,      // a list that the engine edits and never asks
    ranges,          // ranges of client addresses
    patterns,        // compiled expressions for PTR names
    sender_networks, // sender domains and the networks they are tied to
    mail_log,
    daily_counters, // one file a month: its two digits follow the name behind a dot
    hourly_counters,
};

struct configuration_file {
    const char *path; // the whole path
    file_kind kind;
    const char *page;                 // in docs/formats
    list_matcher matcher = nullptr;   // of a list: compares a line with a value
    const char *range_file = nullptr; // asked when the list says no; its name in the base folder
    const char *opposite = nullptr;   // the list that must not hold the same entry; likewise
    bool decides = false;             // of a list and its opposite, the one that is asked first
};

// clang-format off
inline constexpr configuration_file configuration_files[] = {
    {.path = "c:/quillfence/control/enabled",              .kind = file_kind::on_off, .page = "control-files.md"},
    {.path = "c:/quillfence/control/rules.enabled",        .kind = file_kind::rule_names, .page = "control-files.md"},
    {.path = "c:/quillfence/control/bms.enabled",          .kind = file_kind::map_names, .page = "control-files.md"},
    {.path = "c:/quillfence/control/valid_domain_ips",     .kind = file_kind::sender_networks, .page = "sender-networks.md"},
    {.path = "c:/quillfence/rbl.enabled",                  .kind = file_kind::zone_names, .page = "control-files.md"},
    {.path = "c:/quillfence/bms/lists_to_update",          .kind = file_kind::map_names, .page = "control-files.md"},
    {.path = "c:/quillfence/bms/control/lists_to_update",  .kind = file_kind::map_names, .page = "control-files.md"},

    {.path = "c:/quillfence/from_whitelist",   .kind = file_kind::addresses, .page = "list-files.md", .matcher = __wildcardmatch,
     .opposite = "from_blacklist", .decides = true},
    {.path = "c:/quillfence/from_blacklist",   .kind = file_kind::addresses, .page = "list-files.md", .matcher = __wildcardmatch,
     .opposite = "from_whitelist"},
    {.path = "c:/quillfence/exempt_users",     .kind = file_kind::addresses, .page = "list-files.md", .matcher = __wildcardmatch},
    {.path = "c:/quillfence/exempt_ips",       .kind = file_kind::ips, .page = "list-files.md", .matcher = _stricmp,
     .range_file = "exempt_ips.range", .opposite = "blocked_ips", .decides = true},
    {.path = "c:/quillfence/blocked_ips",      .kind = file_kind::ips, .page = "list-files.md", .matcher = _stricmp,
     .range_file = "blocked_ips.range", .opposite = "exempt_ips"},
    {.path = "c:/quillfence/rl_whitelist.lst", .kind = file_kind::other_list, .page = "list-files.md", .matcher = _stricmp,
     .opposite = "ra_whitelist.lst", .decides = true},
    {.path = "c:/quillfence/ra_whitelist.lst", .kind = file_kind::other_list, .page = "list-files.md", .matcher = _stricmp,
     .opposite = "rl_whitelist.lst"},
    {.path = "c:/quillfence/exempt_ips.range",  .kind = file_kind::ranges, .page = "range-files.md"},
    {.path = "c:/quillfence/blocked_ips.range", .kind = file_kind::ranges, .page = "range-files.md"},

    {.path = "c:/quillfence/dynaregex/dyna.cregexes",      .kind = file_kind::patterns, .page = "compiled-patterns.md"},
    {.path = "c:/quillfence/dynaregex/spam.cregexes",      .kind = file_kind::patterns, .page = "compiled-patterns.md"},
    {.path = "c:/quillfence/dynaregex/confirmed.cregexes", .kind = file_kind::patterns, .page = "compiled-patterns.md"},
    {.path = "c:/quillfence/dynaregex/exempt.cregexes",    .kind = file_kind::patterns, .page = "compiled-patterns.md"},

    {.path = "c:/quillfence/log/qflog",                    .kind = file_kind::mail_log, .page = "mail-log.md"},
    {.path = "c:/quillfence/log/.counterv2.dat",           .kind = file_kind::daily_counters, .page = "counters.md"},
    {.path = "c:/quillfence/log/.counterv2.dat.hourly",    .kind = file_kind::hourly_counters, .page = "counters.md"},
};
// clang-format on

// Where the file lies below the base folder, "control/enabled" for one: a list has the same name in
// a user's directory.
constexpr const char *path_in_base(const configuration_file &file) {
    return file.path + sizeof quillfence_base_dir - 1;
}

// The file's name without its folders.
constexpr const char *name_in_folder(const configuration_file &file) {
    return file.path + std::string_view(file.path).find_last_of('/') + 1;
}

// The list files are those with a matcher.
constexpr bool is_list(const configuration_file &file) {
    return file.matcher != nullptr;
}

// The file at this place below the base folder; null when the table has none.
constexpr const configuration_file *find_configuration_file(std::string_view path) {
    for (const configuration_file &file : configuration_files) {
        if (path == path_in_base(file)) {
            return &file;
        }
    }
    return nullptr;
}

// The same for a place that is known when this is compiled.
consteval const configuration_file &configured(std::string_view path) {
    return *find_configuration_file(path);
}

} // namespace quillfence
