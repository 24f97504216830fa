// What the rights of files let a user of this machine do. Linux only. Access lists beyond owner,
// group and others are not looked at.
#pragma once

#include <cstddef>

namespace quillfence::platform {

bool user_exists(const char *name);

// Whether a user may connect to a Unix socket: write to it, and pass through every folder on the
// way to it. False also when there is no such user or path. obstacle receives the path of what is
// in the way, cut to size bytes, or "" when there is nothing.
bool user_can_connect(const char *user, const char *path, char *obstacle, size_t size);

} // namespace quillfence::platform
