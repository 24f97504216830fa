// Pointers that each thread has for itself. A fixed few, and none of them costs an allocation: the
// compiler's own thread_local does on Windows, where it also ends a program that has no memory.
#pragma once

#include <cstdint>

namespace quillfence::platform {

enum class thread_slot : uint8_t {
    call_context, // call_context.h
    step_budget,  // the matcher's
    log_listener, // vc_w32.h
    drive_root,   // surroundings.h
    last = drive_root,
};

// What the calling thread has put there; null before it has put anything. The last error number
// of the system (GetLastError, errno) stays as it is.
void *thread_slot_get(thread_slot slot);
// Borrowed: whoever sets a slot takes it back before what it points to goes. On Windows, where the
// system has a limited number of such places for a process, a slot that could not be had stays
// null.
void thread_slot_set(thread_slot slot, void *value);

} // namespace quillfence::platform
