#include "platform/surroundings.h"

#include "platform/error_numbers.h"
#include "platform/format.h"
#include "platform/thread_slot.h"
#include "surroundings.h"

namespace quillfence::platform {

namespace {

struct chosen_path {
    bool is_chosen;
    char text[4096];
};

} // namespace

static chosen_path root_of_drive;
static chosen_path export_of_registry;

static uint32_t choose(const char *path, chosen_path *chosen) {
    if (!path) {
        chosen->is_chosen = false;
        return error_none;
    }
    if (!*path) {
        return error_path_not_found;
    }
    chosen_path wanted = {true, ""};
    if (format_text(wanted.text, sizeof wanted.text, "%s", path) < 0) {
        return error_filename_too_long;
    }
    *chosen = wanted;
    return error_none;
}

static const char *text_of(const chosen_path &chosen) {
    return chosen.is_chosen ? chosen.text : nullptr;
}

uint32_t set_drive_root(const char *directory) {
    return choose(directory, &root_of_drive);
}

uint32_t set_registry_export(const char *path) {
    return choose(path, &export_of_registry);
}

const char *exchange_drive_root(const char *directory) {
    void *const before = thread_slot_get(thread_slot::drive_root);
    thread_slot_set(thread_slot::drive_root, const_cast<char *>(directory));
    return static_cast<const char *>(before);
}

const char *drive_root() {
    const void *const own = thread_slot_get(thread_slot::drive_root);
    return own ? static_cast<const char *>(own) : text_of(root_of_drive);
}

const char *registry_stand_in() {
    return text_of(export_of_registry);
}

} // namespace quillfence::platform
