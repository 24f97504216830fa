#include "system_path.h"

#include <cstring>

#include "../surroundings.h"
#include "platform/format.h"
#include "platform/observer.h"
#include "system.h"

namespace quillfence::platform {

static bool is_slash(char c) {
    return c == '/' || c == '\\';
}

static char lower_letter(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

static bool same_sign(char one, char other) {
    return (is_slash(one) && is_slash(other)) || lower_letter(one) == lower_letter(other);
}

// Whether a path is the folder, or leads to something in it, as far as the two are written alike.
static bool is_below(const char *path, const char *folder) {
    size_t length = strlen(folder);
    while (length && is_slash(folder[length - 1])) {
        --length;
    }
    for (size_t i = 0; i < length; ++i) {
        if (!same_sign(path[i], folder[i])) { // differs at the path's end, too
            return false;
        }
    }
    return length && (path[length] == '\0' || is_slash(path[length]));
}

// Below what the process needs of the real drive: its temporary files, the system's own.
static bool is_own(const char *path) {
    char folder[MAX_PATH + 1];
    const DWORD temporary = GetTempPathA(sizeof folder, folder);
    if (temporary && temporary < sizeof folder && is_below(path, folder)) {
        return true;
    }
    const UINT system = GetSystemDirectoryA(folder, sizeof folder);
    return system && system < sizeof folder && is_below(path, folder);
}

static bool is_on_drive_c(const char *path) {
    return lower_letter(path[0]) == 'c' && path[1] == ':';
}

uint32_t resolve_path(const char *path, system_path *resolved) {
    if (!path || !*path) {
        return error_path_not_found;
    }
    resolved->text = path;
    const char *const root = drive_root();
    if (!root || !is_on_drive_c(path) || is_below(path, root) || is_own(path)) {
        return error_none;
    }
    size_t length = strlen(root);
    while (length && is_slash(root[length - 1])) {
        --length;
    }
    const char *const rest = path + strlen("c:");
    resolved->text = resolved->buffer;
    return format_text(resolved->buffer, sizeof resolved->buffer, "%.*s%s%s",
                       static_cast<int>(length), root, is_slash(*rest) ? "" : "/", rest) < 0
               ? static_cast<uint32_t>(error_filename_too_long)
               : error_none;
}

uint32_t begin_path_call(const char *call, const char *path, system_path *resolved) {
    const uint32_t failure = observe_call(call, path);
    return failure ? failure : resolve_path(path, resolved);
}

uint32_t begin_two_path_call(const char *call, const char *first, const char *second,
                             system_path *first_resolved, system_path *second_resolved) {
    const uint32_t failure = begin_path_call(call, first, first_resolved);
    return failure ? failure : resolve_path(second, second_resolved);
}

} // namespace quillfence::platform
