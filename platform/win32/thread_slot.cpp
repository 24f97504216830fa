#include "platform/thread_slot.h"

#include "system.h"

namespace quillfence::platform {

static constexpr unsigned slot_count = static_cast<unsigned>(thread_slot::last) + 1;
// The system's numbers for them, had once in the life of the process.
static DWORD indices[slot_count];

static BOOL CALLBACK take_indices(PINIT_ONCE, PVOID, PVOID *) {
    for (DWORD &index : indices) {
        index = TlsAlloc();
    }
    return TRUE;
}

static DWORD index_of(thread_slot slot) {
    static INIT_ONCE once = INIT_ONCE_STATIC_INIT;
    InitOnceExecuteOnce(&once, take_indices, nullptr, nullptr);
    return indices[static_cast<unsigned>(slot)];
}

// The system's calls set the last error also when they succeed.
void *thread_slot_get(thread_slot slot) {
    const DWORD last_error = GetLastError();
    const DWORD index = index_of(slot);
    void *const value = index == TLS_OUT_OF_INDEXES ? nullptr : TlsGetValue(index);
    SetLastError(last_error);
    return value;
}

void thread_slot_set(thread_slot slot, void *value) {
    const DWORD last_error = GetLastError();
    const DWORD index = index_of(slot);
    if (index != TLS_OUT_OF_INDEXES) {
        TlsSetValue(index, value);
    }
    SetLastError(last_error);
}

} // namespace quillfence::platform
