// What the tool knows of list files beyond the engine's operations on them: which there are, what
// their lines hold, and why a line can't do what it is there for.
#pragma once

#include <string>
#include <string_view>

#include "quillfence-file.h"

namespace quillfence::data_files {

enum class list_kind {
    addresses, // mail addresses, compared as wildcard patterns
    ips,       // client addresses, compared as a whole
    other,     // texts that the engine itself does not ask
};

struct list_file {
    const char *name;
    list_kind kind;
    const char *opposite; // the list that must not hold the same entry; null for none
    bool decides;         // of the two the one that is asked first
};

inline constexpr list_file list_files[] = {
    {"from_whitelist", list_kind::addresses, "from_blacklist", true},
    {"from_blacklist", list_kind::addresses, "from_whitelist", false},
    {"exempt_users", list_kind::addresses, nullptr, false},
    {"exempt_ips", list_kind::ips, "blocked_ips", true},
    {"blocked_ips", list_kind::ips, "exempt_ips", false},
    {"rl_whitelist.lst", list_kind::other, "ra_whitelist.lst", true},
    {"ra_whitelist.lst", list_kind::other, "rl_whitelist.lst", false},
};
// The range file that goes with a list of addresses of clients.
inline constexpr char range_suffix[] = ".range";

// Null for a name that is not in the table.
const list_file *find_list_file(std::string_view name);
// What the engine compares the lines of such a list with, and its name for people.
list_matcher matcher_of(list_kind kind);
const char *matcher_name(list_kind kind);

// The most characters of an entry that a lookup reads in one piece.
inline constexpr size_t longest_entry = 1022;

// Why an entry never does what it is there for; "" when nothing is wrong with it. The entry is
// without leading white space and holds no NUL.
std::string why_useless(list_kind kind, const std::string &entry);
// Why the engine can't compile an entry with a "*", or refuses what it compiled; "" when it can.
std::string why_not_compiled(const std::string &entry);
// Whether an entry's only operator is the "*".
bool is_plain_pattern(std::string_view entry);

} // namespace quillfence::data_files
