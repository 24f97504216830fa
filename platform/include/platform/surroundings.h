// Another server's surroundings in place of this system's own, for this process only: a copy of its
// drive c:, an export of its registry. They mean the same on both systems, and go before the
// variables that name them on Linux; on Windows no variable counts.
//
// What is for the process is set by one thread, while no other asks the seam and no registry key is
// open.
#pragma once

#include <cstdint>

namespace quillfence::platform {

// Names below c: are looked up under this directory, however they are written: its c:/quillfence is
// the directory's quillfence. On Windows three kinds of names stay what they are, so that the
// process can be told of its own files: those below the directory itself, those below the folder
// for temporary files and those below the system's folder, where the hosts file lies.
//   directory  copied, and taken as it is; null for the system's own drive
// Returns 0, 3 for "", or 206 for one that is too long.
uint32_t set_drive_root(const char *directory);

// The same for the calling thread alone, whatever set_drive_root said; at any time.
//   directory  borrowed until it is taken back; null for what set_drive_root said
// Returns what was set before.
const char *exchange_drive_root(const char *directory);

// The registry is what this export says (docs/formats/registry-export.md), as
// platform/registry.h tells it of Linux; its texts are in UTF-8.
//   path  copied; on Windows looked up on the system's own drives. Null for the system's registry
// Returns 0, 3 for "", or 206 for one that is too long.
uint32_t set_registry_export(const char *path);

} // namespace quillfence::platform
