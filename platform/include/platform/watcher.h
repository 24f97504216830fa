// Waits for many sockets and pipes at once. Linux only.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quillfence::platform {

struct watcher; // opaque

// One thing that was waited for has come. An error or the end of a connection is told as both.
struct watched_event {
    void *tag;
    bool readable;
    bool writable;
};

// Null when the system has no more of them.
watcher *watcher_create();
void watcher_release(watcher *of); // null is accepted

// Waits for this descriptor from now on, until it is removed or closed; each wait tells again what
// still is so. 0 or a Win32 error number.
//   tag  what its events carry; not null
uint32_t watcher_add(watcher *of, intptr_t descriptor, void *tag, bool readable, bool writable);
uint32_t watcher_change(watcher *of, intptr_t descriptor, void *tag, bool readable, bool writable);
void watcher_remove(watcher *of, intptr_t descriptor);

// Waits until something has come, for at most so many milliseconds (-1: however long). Returns how
// many events it stored; 0 also when it was woken or a signal came. *woken (may be null) receives
// whether it was woken.
size_t watcher_wait(watcher *of, watched_event *events, size_t room, int milliseconds,
                    bool *woken = nullptr);

// Ends the wait under way, or the next one. Safe from any thread and in a signal's handler.
void watcher_wake(watcher *of);

} // namespace quillfence::platform
