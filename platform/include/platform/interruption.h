// A wish that the program ends: Ctrl-C, and the system's other ways to ask for it (SIGTERM; on
// Windows Ctrl-Break and the closing of the console). A program that listens ends in its own time,
// with what it has done so far.
#pragma once

#include <cstdint>

#include "platform/file.h"

namespace quillfence::platform {

// From now on a wish is noted; a second one of the same kind does what it did before: it ends the
// process at once, or after its scratch folders have gone (platform/scratch_folder.h). A signal
// that the process was started to ignore stays ignored. 0 or a Win32 error number. Nothing is noted
// yet, whatever came before.
uint32_t interruption_listen();
// As it was before. For the thread that listened.
void interruption_ignore();

// Whether a wish has been noted. Safe from several threads.
bool interruption_noted();
// Notes one, as if it had come. Safe in a signal's handler.
void interruption_note();
// A descriptor that is readable once a wish has been noted; for a watcher. Linux only.
intptr_t interruption_descriptor();

// As file_read, but ends with 995 when a wish has been noted, before it or while it waits for bytes
// from a pipe or a terminal. On Windows it looks at a pipe a hundred times a second.
uint32_t file_read_unless_interrupted(file_handle file, void *buffer, uint32_t size,
                                      uint32_t *moved);

} // namespace quillfence::platform
