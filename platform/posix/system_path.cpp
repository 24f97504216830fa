#include "system_path.h"

#include <cstdlib>
#include <cstring>

#include "../surroundings.h"
#include "platform/error_numbers.h"

namespace quillfence::platform {

namespace {

char upper_letter(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool has_drive(const char *path) {
    const char letter = upper_letter(path[0]);
    return letter >= 'A' && letter <= 'Z' && path[1] == ':';
}

bool is_slash(char c) {
    return c == '/' || c == '\\';
}

// The folder that stands for the drive, null when there is none: its variable is not set or empty.
const char *folder_of_drive(char letter) {
    if (const char *const root = upper_letter(letter) == 'C' ? drive_root() : nullptr) {
        return root;
    }
    char name[] = "QUILLFENCE_DRIVE_?";
    name[sizeof name - 2] = upper_letter(letter);
    const char *const folder = getenv(name);
    return folder && *folder ? folder : nullptr;
}

} // namespace

uint32_t resolve_path(const char *path, system_path *resolved) {
    if (!path || !*path) {
        return error_path_not_found;
    }
    resolved->drive_names = 0;
    resolved->drive = '\0';
    if (!has_drive(path)) {
        resolved->text = path;
        return error_none;
    }
    const char *const folder = folder_of_drive(path[0]);
    const char *const prefix = folder ? folder : "";
    const char *const rest = folder ? path + 2 : path;
    const bool needs_slash = folder && !is_slash(*rest);
    const size_t prefix_length = strlen(prefix);
    const size_t rest_length = strlen(rest);
    if (prefix_length + needs_slash + rest_length >= sizeof resolved->buffer) {
        return error_filename_too_long;
    }
    char *end = resolved->buffer;
    memcpy(end, prefix, prefix_length);
    end += prefix_length;
    if (needs_slash) {
        *end++ = '/';
    }
    for (const char *from = rest; *from; ++from) {
        *end++ = *from == '\\' ? '/' : *from;
    }
    *end = '\0';
    resolved->text = resolved->buffer;
    if (folder) {
        resolved->drive = upper_letter(path[0]);
        resolved->drive_names = prefix_length + 1;
    } else if (is_slash(path[2])) {
        resolved->drive_names = 3;
    }
    return error_none;
}

} // namespace quillfence::platform
