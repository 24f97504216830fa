// quillfence-data list: asks and edits the white and black lists with the engine's own operations.
#pragma once

#include <ostream>
#include <string>

#include "data_program.h"

namespace quillfence::data_tool {

struct list_find_arguments {
    std::string directory; // the base directory, or a user's
    std::string value;     // a mail address or a client's address
    bool json = false;
};
// Every entry of every list in the directory that matches the value, as "file:line: entry
// (how)", range files included; and a line for every two opposite lists that both match. `how` is
// "plain" for an entry of a list with wildcards that has none.
// As JSON an object with "matches", each with its "file", "line" or "record", "entry" and "how",
// and "first", the pairs of opposite lists that both match, each with the "list" that comes first
// and the list "before" which it comes.
// exit_status::no when nothing matches.
exit_status list_find(const list_find_arguments &arguments, std::ostream &out);

struct list_edit_arguments {
    std::string directory;
    std::string list;
    std::string entry;
    std::string comment;       // list_add: the comment to set; "" to add the entry
    bool comment_only = false; // list_del: keep the entry
    bool force = false;        // list_add: also to a list that the engine does not know
};
// Entries are compared as whole texts without regard to case, so that a wildcard entry does not
// stand for all that it matches. Both throw a failure with the engine's text when nothing was
// changed; list_add also for an entry that would never match, and for a list that nobody would
// read.
exit_status list_add(const list_edit_arguments &arguments, std::ostream &out);
exit_status list_del(const list_edit_arguments &arguments, std::ostream &out);

struct list_bulk_arguments {
    std::string directory;
    std::string list;
    std::string from; // a file of entries, one a line; "-" for standard input
    bool force = false;
};
// Adds all entries of a text in one edit, or none. Blank lines are passed over, and in a text for a
// list that has them comments: lines with "#" in front, and those behind a TAB, which the list's
// editor takes for the comment of the entry above; these are counted. White space in front of an
// entry does not count. Entries that are there already, or come twice, are counted and no error.
// Throws a failure when a line is none that list_add takes; all of them are complained about, up to
// bulk_input::most_complaints.
exit_status list_add_all(const list_bulk_arguments &arguments, std::ostream &out);

} // namespace quillfence::data_tool
