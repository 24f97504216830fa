// What a service is told besides its work: that it is to end (platform/interruption.h), that it is
// to reopen and read anew what it holds open (SIGHUP), and the service manager that wants to know
// how it is doing. Linux only.
#pragma once

#include <cstdint>

#include "platform/file.h"

namespace quillfence::platform {

// --- SIGXFSZ ---

// From now on a write beyond the process's limit for a file's size fails (error 223) and does not
// end the process.
void outlive_file_limit();

// --- SIGHUP ---

// From now on SIGHUP is noted. 0 or a Win32 error number.
uint32_t hang_up_listen();
// As it was before. For the thread that listened.
void hang_up_ignore();
// Whether it came since the last call.
bool hang_up_taken();
// A descriptor that is readable while one has come and was not taken; for a watcher.
intptr_t hang_up_descriptor();

// --- waiting for a stream ---

enum class awaited : uint8_t { input, interruption, hang_up };

// Waits until there is something to read, its end included, or a signal was noted; what is to be
// waited for must be listened to. An interruption comes first, then a hang-up, which is left for
// hang_up_taken().
awaited await_input(file_handle input);

// --- the service manager ---

// Sends a state ("READY=1") to the socket that NOTIFY_SOCKET names, a path or, behind an @, a name
// of its own space. 0 also without the variable; else a Win32 error number, 206 for a name that
// does not fit into a socket's address.
uint32_t tell_service_manager(const char *state);

} // namespace quillfence::platform
