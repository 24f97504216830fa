// Where the engine's files lie in an archive: their paths with the letters that the names have on
// the disk, which need not be those by which the engine asks.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace quillfence::decision {

// Where a path of the engine stands in an archive; "" for one that has no place there, since it is
// relative, leads above its root, or names a network share.
//     c:/quillfence/bms//bots.bms      c/quillfence/bms/bots.bms
//     D:\Mail\DOMAIN.TAB               d/Mail/DOMAIN.TAB
//     /etc/quillfence/users/bob/x      root/etc/quillfence/users/bob/x     (no drive: on Linux)
std::string archive_name(std::string_view path);

// Looks names up in their folders, each of which is listed once.
class disk_names {
  public:
    // An archive's name, with the letters on the disk of those parts that differ from it in the
    // case of ASCII letters. Parts that are not there, and names that begin with "root", stay as
    // they are.
    std::string spelled(const std::string &name);
    // The same of a relative name, "control/enabled", below a folder.
    std::string spelled_below(const std::string &folder, const std::string &name);

    struct listed {
        std::string name;
        bool folder;
    };
    // Everything in a folder but "." and "..", sorted.
    struct listing {
        uint32_t error = 0; // a Win32 number; names has what was listed up to it
        std::vector<listed> names;
    };
    const listing &in_folder(const std::string &folder); // borrowed

  private:
    std::map<std::string, listing> folders_;
};

} // namespace quillfence::decision
