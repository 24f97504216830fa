// Replacements, of the steps that each system has.
#include "platform/edit.h"

#include <cstring>

#include "platform/error_numbers.h"
#include "platform/format.h"

namespace quillfence::platform {

uint32_t replacement_begin(const char *path, const char *ending, replacement *begun,
                           file_rights rights) {
    begun->lock = {};
    if (const uint32_t error = path_target(path, begun->path, sizeof begun->path)) {
        return error;
    }
    if (format_text(begun->temporary, sizeof begun->temporary, "%s%s", begun->path, ending) < 0) {
        return error_filename_too_long;
    }
    return temporary_create(begun->temporary, begun->path, &begun->lock, rights);
}

uint32_t replacement_commit(replacement *whole, edit_lock *held) {
    if (const uint32_t error = file_sync(whole->lock.file)) {
        return error;
    }
    edit_lock_close_file(&whole->lock);
    if (held) {
        edit_lock_close_file(held);
    }
    if (const uint32_t error = path_replace(whole->temporary, whole->path)) {
        return error;
    }
    whole->temporary[0] = '\0';
    return path_sync_folder(whole->path);
}

uint32_t replacement_end(replacement *any) {
    if (any->lock.file == invalid_file && any->lock.guard == invalid_file) {
        return error_none;
    }
    edit_lock_close_file(&any->lock);
    const uint32_t error = any->temporary[0] ? path_delete(any->temporary) : error_none;
    edit_lock_release(&any->lock);
    return error;
}

} // namespace quillfence::platform
