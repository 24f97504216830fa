// Paths of the program as paths of this system. Internal to the Linux side.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>

namespace quillfence::platform {

struct system_path {
    const char *text; // the path itself, or the buffer
    size_t
        drive_names; // where the names below a drive begin in the buffer; 0 for a path without one
    char drive;      // its letter in upper case when a variable names its folder, else 0
    char buffer[PATH_MAX];
};

// Resolves a path as platform/file.h describes it, in the letter case that it was given. 0, or the
// error number of a path that is null or empty (3) or too long (206). The path must outlive the
// result. Whoever asks the system about it does so through letter_case.h.
uint32_t resolve_path(const char *path, system_path *resolved);

} // namespace quillfence::platform
