// A watcher of the seam, for tests: it counts system calls and makes the n-th of them fail.
#pragma once

#include <cstdint>

namespace quillfence::platform {

// Called by every seam function that is about to ask the operating system for something.
//   call     the function's name, as in "file_open"
//   subject  the path, host or variable name that it is about; empty when there is none
// Returns 0 to let the call go on, or the Win32 error number with which it fails instead.
using call_observer = uint32_t (*)(const char *call, const char *subject);

// Installs an observer; null removes it. The product never installs one.
void set_call_observer(call_observer observer);

// Asked by the seam's own sources: 0, or the number to fail with.
uint32_t observe_call(const char *call, const char *subject);

} // namespace quillfence::platform
