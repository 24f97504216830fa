// Paths of the program as paths of this system. Internal to the Windows side.
#pragma once

#include <cstdint>

namespace quillfence::platform {

struct system_path {
    const char *text; // the path itself, or the buffer
    char buffer[4096];
};

// Resolves a path as platform/surroundings.h describes it. 0, or the error number of a path that is
// null or empty (3) or too long (206). The path must outlive the result.
uint32_t resolve_path(const char *path, system_path *resolved);

// Asks the observer about a path and resolves it.
uint32_t begin_path_call(const char *call, const char *path, system_path *resolved);
// The same for a call about the first of two paths.
uint32_t begin_two_path_call(const char *call, const char *first, const char *second,
                             system_path *first_resolved, system_path *second_resolved);

} // namespace quillfence::platform
