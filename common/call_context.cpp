#include "call_context.h"

#include "platform/thread_slot.h"

namespace quillfence {

call_context *current_call_context() {
    return static_cast<call_context *>(
        platform::thread_slot_get(platform::thread_slot::call_context));
}

call_context *exchange_call_context(call_context *context) {
    call_context *const before = current_call_context();
    platform::thread_slot_set(platform::thread_slot::call_context, context);
    return before;
}

} // namespace quillfence
