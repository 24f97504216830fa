#include "system_path.h"

#include <cstdlib>
#include <cstring>

#include "../surroundings.h"
#include "platform/error_numbers.h"

namespace quillfence::platform {

static char upper_letter(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

static bool has_drive(const char *path) {
    const char letter = upper_letter(path[0]);
    return letter >= 'A' && letter <= 'Z' && path[1] == ':';
}

static bool is_slash(char c) {
    return c == '/' || c == '\\';
}

// The folder that stands for the drive, null when there is none: its variable is not set or empty.
static const char *folder_of_drive(char letter) {
    if (const char *const root = upper_letter(letter) == 'C' ? drive_root() : nullptr) {
        return root;
    }
    char name[] = "QUILLFENCE_DRIVE_?";
    name[sizeof name - 2] = upper_letter(letter);
    const char *const folder = getenv(name);
    return folder && *folder ? folder : nullptr;
}

// The folder and the rest of the path behind it, with slashes. False when they are too long.
static bool write_below(const char *folder, const char *rest, char *buffer, size_t size) {
    const size_t length = strlen(folder);
    const bool needs_slash = length != 0 && !is_slash(*rest);
    if (length + needs_slash + strlen(rest) >= size) {
        return false;
    }
    memcpy(buffer, folder, length);
    char *end = buffer + length;
    if (needs_slash) {
        *end++ = '/';
    }
    for (; *rest; ++rest) {
        *end++ = *rest == '\\' ? '/' : *rest;
    }
    *end = '\0';
    return true;
}

uint32_t resolve_path(const char *path, system_path *resolved) {
    if (!path || !*path) {
        return error_path_not_found;
    }
    resolved->drive_names = 0;
    resolved->drive = '\0';
    resolved->text = path;
    if (!has_drive(path)) {
        return error_none;
    }
    const char *const folder = folder_of_drive(path[0]);
    if (!write_below(folder ? folder : "", folder ? path + 2 : path, resolved->buffer,
                     sizeof resolved->buffer)) {
        return error_filename_too_long;
    }
    resolved->text = resolved->buffer;
    if (folder) {
        resolved->drive = upper_letter(path[0]);
        resolved->drive_names = strlen(folder) + 1;
    } else if (is_slash(path[2])) {
        resolved->drive_names = 3;
    }
    return error_none;
}

} // namespace quillfence::platform
