#include "call_context.h"

#include <cstring>

#include "platform/thread_slot.h"
#include "vc_text.h"

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

const char *path_to_read(const char *path) {
    const call_context *const context = current_call_context();
    if (context && context->substitutes) {
        for (const file_substitute *row = context->substitutes; row->path; ++row) {
            if (_stricmp(row->path, path) == 0) {
                return row->replacement;
            }
        }
    }
    return path;
}

uint32_t place_left_out(const char *path) {
    const call_context *const context = current_call_context();
    const left_out_entry *const entry = context ? context->left_out : nullptr;
    return entry && strcmp(entry->path, path) == 0 ? entry->place : 0;
}

} // namespace quillfence
