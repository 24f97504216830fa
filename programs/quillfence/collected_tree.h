// Every file that the engine knows by its place, looked up on the disk: what a collection holds and
// what it leaves out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "disk_names.h"

namespace quillfence::programs {

struct collected_file {
    std::string path;       // to open it
    std::string name;       // in the archive, in the letters on the disk
    std::string asked_as{}; // the name by which the engine asks, when its letters are others
    std::string kind{};     // "list", "block map", ... as the manifest says it
    std::string link{};     // what a symbolic link leads to; "" for none
    uint64_t size = 0;
    int64_t time = 0;
    std::string digest{}; // SHA-256
};

struct named_reason {
    std::string name;
    std::string why;
    uint64_t bytes = 0;
};

struct collected_tree {
    std::string base_name;                  // in the archive, "c/quillfence"
    std::vector<collected_file> files;      // sorted by name
    std::vector<std::string> folders;       // of the engine, that are there
    std::vector<named_reason> links;        // folders that are links; why is where they lead
    std::vector<std::string> missing;       // names that the engine asks for in vain
    std::vector<named_reason> failures;     // what could not be read
    std::vector<named_reason> left_out;     // known, and not taken along
    uint64_t unknown = 0;                   // files that the engine does not know
    std::vector<std::string> unknown_names; // the first of them
};

struct collect_choice {
    std::string base = "c:/quillfence";
    std::vector<std::string> user_dirs{};
    bool with_log = false;
    bool hosts = true;    // the hosts file is this server's
    bool registry = true; // and so is the registry, which says where the mail server's files are
};

inline constexpr size_t most_unknown_names = 50;
inline constexpr uint64_t most_unknown_files = 100'000; // counting ends there

// Looks everything up, and digests what is there. Throws a failure when base is no folder.
collected_tree collect_tree(const collect_choice &choice);

} // namespace quillfence::programs
