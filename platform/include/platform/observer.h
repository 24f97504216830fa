// A watcher of the seam, for tests: it counts system calls and makes the n-th of them fail.
#pragma once

#include <cstdint>

namespace quillfence::platform {

// Called by every seam function that is about to ask the operating system for something.
//   call     the function's name, as in "file_open"
//   subject  the path, host or variable name that it is about; empty when there is none
// Returns 0 to let the call go on, the Win32 error number with which it fails instead, or
// observed_half. A file_close that is made to fail closes the file all the same, as systems do.
using call_observer = uint32_t (*)(const char *call, const char *subject);

// An observer's answer that makes file_read, file_read_at or file_write move half as many bytes as
// were asked for, rounded down, and succeed. Every other call takes it for 0.
inline constexpr uint32_t observed_half = 0xFFFFFFFF;

// Installs an observer; null removes it. The product never installs one.
void set_call_observer(call_observer observer);

// Asked by the seam's own sources: 0, or the number to fail with.
uint32_t observe_call(const char *call, const char *subject);
// The same for a call that moves up to *size bytes; halves *size when the observer says so.
uint32_t observe_transfer(const char *call, uint32_t *size);

} // namespace quillfence::platform
