#include "platform/thread_slot.h"

namespace quillfence::platform {

static constexpr unsigned slot_count = static_cast<unsigned>(thread_slot::last) + 1;
static thread_local void *slots[slot_count];

void *thread_slot_get(thread_slot slot) {
    return slots[static_cast<unsigned>(slot)];
}

void thread_slot_set(thread_slot slot, void *value) {
    slots[static_cast<unsigned>(slot)] = value;
}

} // namespace quillfence::platform
