// Which folders there are, for both systems.
#include "platform/scratch_folder.h"

#include <atomic>
#include <cstring>

#include "platform/error_numbers.h"
#include "platform/observer.h"
#include "scratch_steps.h"

namespace quillfence::platform {

namespace {

struct slot {
    char path[longest_scratch_path];
    std::atomic<bool> held; // set behind the path, for whoever is called by a signal
};
static_assert(std::atomic<bool>::is_always_lock_free);

slot slots[most_scratch_folders];

} // namespace

static slot *free_slot() {
    for (slot &one : slots) {
        if (!one.held) {
            return &one;
        }
    }
    return nullptr;
}

void scratch_remove_all() {
    for (slot &one : slots) {
        if (one.held) {
            scratch_remove_tree(one.path);
        }
    }
}

uint32_t scratch_folder_make(const char *path) {
    if (const uint32_t failure = observe_call("scratch_folder_make", path)) {
        return failure;
    }
    slot *const place = free_slot();
    if (!place) {
        return error_not_enough_memory;
    }
    if (strlen(path) >= sizeof place->path) {
        return error_filename_too_long;
    }
    strcpy(place->path, path);
    scratch_hold_requests();
    scratch_listen();
    const uint32_t error = scratch_create(path);
    place->held = error == error_none;
    scratch_take_requests();
    return error;
}

uint32_t scratch_folder_remove(const char *path) {
    if (const uint32_t failure = observe_call("scratch_folder_remove", path)) {
        return failure;
    }
    const uint32_t error = scratch_remove_tree(path);
    for (slot &one : slots) {
        if (one.held && strcmp(one.path, path) == 0) {
            one.held = false;
        }
    }
    return error;
}

} // namespace quillfence::platform
