// Looks every file of a configuration tree over: what quillfence-data verify prints, and what goes
// along with a collected server. Nothing is changed.
#pragma once

#include <cstdint>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "finding_kinds.h"
#include "program.h"
#include "range_records.h"

namespace quillfence::verification {

using namespace data_files;
using namespace programs;

struct finding {
    std::string file; // relative to the base directory
    uint32_t line;    // 0 for the file as a whole
    finding_id id;
    std::string text; // printable ASCII
    bool operator==(const finding &) const = default;

    severity level() const {
        return id.kind().level;
    }
};

// What is wrong with a part of a line.
struct problem {
    finding_id id;
    std::string text;
};

// The tree under inspection and what was found in it.
struct tree {
    std::string base;
    std::vector<finding> findings;
    uint32_t files = 0; // that have been looked into

    // For people; and where it is, as a file of the catalogue may have other letters there.
    std::string path(std::string_view file) const;
    std::string place(std::string_view file) const;
    // Also true when the system does not say; reading the file then makes a finding of it.
    bool has(std::string_view file) const;
    void add(std::string_view file, uint32_t line, finding_id id, std::string text);
    // "can't be ...", with what the system says: one finding, however often it is met.
    void add_failure(std::string_view file, finding_id id, const std::string &text, uint32_t error);
    // The bytes of a file that is there; a finding, and false, when it can't be read. The second
    // one is for a file that has been counted before; the first is for texts, and refuses UTF-16.
    bool read(std::string_view file, std::string *bytes);
    bool read_again(std::string_view file, std::string *bytes);
    // The records of a range file, which may be missing; a finding when it can't be read.
    range_records ranges(std::string_view file);
    // The names of the files in a folder, which may be missing; a finding when it can't be listed.
    std::vector<std::string> list(std::string_view folder);
    // Likewise of the folders in it; without a finding, as what it can't list list() tells.
    std::vector<std::string> list_folders(std::string_view folder) const;
};

// One function a kind of file; each looks for its own files in the tree.
void verify_enabled(tree &in);      // control/enabled
void verify_names(tree &in);        // rules.enabled, bms.enabled, rbl.enabled, lists_to_update
void verify_forgery_list(tree &in); // control/valid_domain_ips
void verify_lists(tree &in);        // the white and black lists, with their opposites
void verify_ranges(tree &in);       // *.range, with the lists that they go with
void verify_patterns(tree &in);     // dynaregex/*.cregexes
void verify_block_maps(tree &in);   // the maps that the lists of maps name
void verify_counters(tree &in);     // log/.counterv2.dat.*
void verify_other_files(tree &in);  // names that the engine does not know, leftovers, folders

// The block maps that the lists of maps name; a finding for a list that can't be read.
std::set<std::string> named_maps(tree &in);

// Everything; findings are sorted by file and line.
//   base  the folder that stands for c:/quillfence
// Throws a failure when base is no folder.
tree verify_tree(const std::string &base);

uint32_t count_of(const tree &in, severity level);

} // namespace quillfence::verification
