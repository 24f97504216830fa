// quillfence-data range: shows and edits range files with the engine's own operations.
#pragma once

#include <ostream>
#include <string>

#include "data_program.h"

namespace quillfence::data_tool {

struct range_list_arguments {
    std::string file;
    bool json = false;
};
// One line a record: "10.1.2.0-10.1.2.255", and behind two blanks its comment. Throws a failure
// when the file is missing, corrupt, or a record in it is no range inside one /16.
exit_status range_list(const range_list_arguments &arguments, std::ostream &out);

struct range_edit_arguments {
    std::string file;
    std::string low;     // an address, or a network as in "10.1.2.0/24" when high is empty
    std::string high;    // "": the same as low
    std::string comment; // of range_add; "" for none
};
// Both throw a failure with the engine's text when nothing was changed.
exit_status range_add(const range_edit_arguments &arguments, std::ostream &out);
exit_status range_del(const range_edit_arguments &arguments, std::ostream &out);

struct range_bulk_arguments {
    std::string file;
    std::string from; // a file of addresses, networks and ranges, one a line (read_address_line);
                      // "-" for standard input
    std::string comment; // of each range; "" for none
};
// Adds all ranges of a text in one edit, or none, each cut where a /16 ends. Those that are there
// already, or come twice, are counted and no error; they keep their comments. Throws a failure for
// a wrong line; all of them are complained about, up to bulk_input::most_complaints.
exit_status range_add_all(const range_bulk_arguments &arguments, std::ostream &out);

// A file of the legacy version becomes one of the current version.
exit_status range_convert(const std::string &file, std::ostream &out);

} // namespace quillfence::data_tool
