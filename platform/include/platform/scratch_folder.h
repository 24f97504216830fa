// Folders for what a program needs while it runs, for its user alone. One goes with everything in
// it when the program is done with it, and also when the program is told to end. For one thread at
// a time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quillfence::platform {

inline constexpr int most_scratch_folders = 8; // at once
inline constexpr size_t longest_scratch_path = 1024;

// Makes the folder. 0 or a Win32 error number: 183 when it exists, 206 for a path that is too long,
// 8 when there are as many as there can be.
//
// From now on it is removed when the process is told to end. On Linux that is SIGINT, SIGTERM,
// SIGHUP and SIGQUIT, by which the process then ends. A signal that it was started to ignore stays
// ignored, and one that it listens to by itself (platform/interruption.h) is a wish first. On
// Windows it is Ctrl-C, Ctrl-Break, and the closing of the console; what is open at that moment can
// stay there. Nothing can be done about SIGKILL and a loss of power.
uint32_t scratch_folder_make(const char *path);

// Removes a folder that was made here. 0 or a Win32 error number: then something is still there,
// which nobody looks after any more.
uint32_t scratch_folder_remove(const char *path);

} // namespace quillfence::platform
