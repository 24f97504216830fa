#include "platform/complaint.h"

#include <atomic>
#include <cstdarg>

namespace quillfence::platform {

static constexpr size_t most_complaints = 64;

static std::atomic<complaint_listener> installed_listener;
// Hashes of what was told; 0 is a free slot.
static std::atomic<uint64_t> told[most_complaints];

// FNV-1a; never 0.
static uint64_t hash_of(const char *text) {
    uint64_t hash = 0xcbf29ce484222325;
    for (; *text; ++text) {
        hash = (hash ^ static_cast<unsigned char>(*text)) * 0x100000001b3;
    }
    return hash | 1;
}

// Whether a text has not been told and there is room for it, which it takes.
static bool is_new(const char *text) {
    const uint64_t hash = hash_of(text);
    for (std::atomic<uint64_t> &slot : told) {
        uint64_t found = 0;
        if (slot.compare_exchange_strong(found, hash)) {
            return true;
        }
        if (found == hash) {
            return false;
        }
    }
    return false;
}

void set_complaint_listener(complaint_listener listener) {
    installed_listener = listener;
}

void complain(event_type type, const char *function, const char *format, ...) {
    const complaint_listener listener = installed_listener;
    if (!listener) {
        return;
    }
    char message[1024];
    va_list arguments;
    va_start(arguments, format);
    vformat_text(message, sizeof message, format, arguments);
    va_end(arguments);
    if (is_new(message)) {
        listener(type, function, message);
    }
}

} // namespace quillfence::platform
