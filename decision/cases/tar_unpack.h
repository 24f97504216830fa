// Unpacks a tar file into a folder of its own.
#pragma once

#include <string>
#include <vector>

#include "tar_entry.h"

namespace quillfence::decision {

struct unpacked_tar {
    std::string problem;            // "" when everything is there
    std::vector<tar_entry> entries; // in the archive's order
};

// Looks the whole archive through first, by the rules of tar_reader.h; only then the first file is
// written. So a damaged or hostile archive leaves nothing behind. A full disk leaves what was
// written up to there, which is the caller's to delete.
//   folder  made, when it is missing (the one above it is there); else an empty one. Every folder
//   and
//           file below it is made anew, so that no link that somebody put there is followed
// Problems begin with the path that they are about. Files have the time of their unpacking.
unpacked_tar unpack_tar(const std::string &path, const std::string &folder,
                        const tar_limits &limits = {});

} // namespace quillfence::decision
