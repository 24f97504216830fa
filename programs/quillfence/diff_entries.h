// The entries of a configuration's files, and which of them nothing matched.
#pragma once

#include <string>
#include <vector>

#include "call_context.h"
#include "change_tally.h"

namespace quillfence::programs {

// The entries of the lists, the range files, the compiled patterns and the sender networks, file by
// file; also of a user's own lists ("" for no user). Texts are those of a decision's sources. What
// is missing or can't be read has none. Of the configuration that is in place; with substitutes
// (call_context.h, may be null) as it would be with them.
std::vector<decision::config_entry> listed_entries(const std::string &user_dir,
                                                   const file_substitute *substitutes);

// The same of the control files that name what is used: the rules, the block maps, the DNS block
// lists. Each line is a name as it stands there, a CR included; empty ones are left out.
std::vector<decision::config_entry> control_entries(const file_substitute *substitutes);

struct unhit_entries {
    struct file_row {
        std::string file;
        uint64_t entries = 0;
        uint64_t unhit = 0; // of them
    };
    struct entry_row {
        decision::config_entry entry;
        bool fresh = false; // not in the configuration before
    };
    std::vector<file_row> files;
    std::vector<entry_row> first; // some of them, fresh ones in front
    uint64_t count = 0;           // of all of them
};

// Which entries of the configuration after nothing matched; `most` of them by name.
unhit_entries find_unhit(const std::vector<decision::config_entry> &before,
                         const std::vector<decision::config_entry> &after,
                         const decision::change_tally &tally, size_t most);

} // namespace quillfence::programs
