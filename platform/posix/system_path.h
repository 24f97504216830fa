// Paths of the program as paths of this system. Internal to the Linux side.
#pragma once

#include <climits>
#include <cstdint>

namespace quillfence::platform {

struct system_path {
    const char *text; // the path itself, or the buffer
    char buffer[PATH_MAX];
};

// Resolves a path as platform/file.h describes it. 0, or the error number of a path that is null
// or empty (3) or too long (206). The path must outlive the result.
uint32_t resolve_path(const char *path, system_path *resolved);

} // namespace quillfence::platform
