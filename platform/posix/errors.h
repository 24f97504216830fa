// errno values as Win32 error numbers. Internal to the Linux side.
#pragma once

#include <cstdint>

namespace quillfence::platform {

// The number for an errno value; error_gen_failure for one that the table does not know.
uint32_t error_of_errno(int number);

// The same for a call about a path. Win32 tells a missing file (2) from a missing folder on the
// way to it (3); ENOENT is both, so the parent is looked up.
uint32_t error_of_errno_for(int number, const char *system_path);

} // namespace quillfence::platform
