// What the archives of cases and collected servers are made of: the entries of a tar file (POSIX
// ustar), and which names they may have. No library for tar serves both builds, so it is done here.
//
// The rules are the same for writing and for reading, and on both systems: what was written on one
// can be unpacked on the other, and whatever comes from elsewhere leads nowhere but below the
// folder that it is unpacked into.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace quillfence::decision {

struct tar_entry {
    std::string name; // relative, with "/" between folders and none at the end
    bool folder = false;
    uint64_t size = 0; // in bytes; 0 for a folder
    int64_t time = 0;  // of the last change, in seconds since 1970, UTC
    bool operator==(const tar_entry &) const = default;
};

// What an archive may have at most.
struct tar_limits {
    uint64_t entries = 100'000;
    uint64_t file_size = uint64_t{64} << 30;
    uint64_t total_size = uint64_t{256} << 30; // of all files together
};

// Why an entry goes beyond them, behind so many others with so many bytes; "" when it does not.
std::string why_beyond(const tar_entry &entry, const tar_limits &limits, uint64_t entries,
                       uint64_t total);

inline constexpr size_t longest_tar_name = 1000; // bytes

// Why a name is none for an entry, as in "leads out of the archive"; "" when it is one. Refused are
// names that are absolute or hold "..", that begin with a drive or name a stream, that Windows
// reads as another name (a blank or dot at a part's end, a backslash) or as a device ("con",
// "aux.txt"), that hold control characters or are not UTF-8, and too long ones.
std::string why_no_tar_name(std::string_view name);

// The names of one archive, which are to fit together wherever they are unpacked.
class tar_names {
  public:
    // Takes the name of one more entry. "" or why it does not fit: it is there, it differs from one
    // that is there in the case of ASCII letters alone (folders on the way included), or a file
    // stands where it needs a folder.
    std::string add(std::string_view name, bool folder);

  private:
    struct known {
        std::string name;
        bool folder;
        bool listed; // an entry of its own, and not only on the way to another
    };
    std::string add_part(std::string_view name, bool folder, bool listed);
    std::unordered_map<std::string, known> names_; // by their lower-case form
};

} // namespace quillfence::decision
