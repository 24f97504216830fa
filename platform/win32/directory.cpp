#include "platform/directory.h"

#include <cstdlib>
#include <cstring>

#include "platform/file.h"
#include "platform/observer.h"
#include "system.h"
#include "system_path.h"

namespace quillfence::platform {

// The system hands out the first entry with the listing itself.
struct directory_listing {
    HANDLE search;
    WIN32_FIND_DATAA found;
    bool found_is_new; // the entry in `found` has not been given out yet
};

// The pattern for all entries of a folder; false when it does not fit.
static bool make_pattern(const char *path, char *pattern, size_t size) {
    const size_t length = strlen(path);
    const char last = path[length - 1];
    const char *const tail = last == '/' || last == '\\' ? "*" : "\\*";
    if (length + strlen(tail) >= size) {
        return false;
    }
    strcat(strcpy(pattern, path), tail);
    return true;
}

// A file instead of a folder is the same error everywhere; some versions call it a missing path.
static uint32_t error_of_open(const char *path, uint32_t error) {
    const DWORD attributes = GetFileAttributesA(path);
    const bool is_file =
        attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
    if (is_file) {
        return error_directory;
    }
    return error == error_file_not_found ? static_cast<uint32_t>(error_path_not_found) : error;
}

uint32_t directory_open(const char *path, directory_listing **listing) {
    *listing = nullptr;
    system_path resolved;
    if (const uint32_t failure = begin_path_call("directory_open", path, &resolved)) {
        return failure;
    }
    char pattern[MAX_PATH + 1];
    if (!make_pattern(resolved.text, pattern, sizeof pattern)) {
        return error_filename_too_long;
    }
    auto *const made = static_cast<directory_listing *>(calloc(1, sizeof(directory_listing)));
    if (!made) {
        return error_not_enough_memory;
    }
    made->search = FindFirstFileA(pattern, &made->found);
    if (made->search == INVALID_HANDLE_VALUE) {
        const uint32_t error = error_of_open(resolved.text, error_unless(FALSE));
        free(made);
        return error;
    }
    made->found_is_new = true;
    *listing = made;
    return error_none;
}

uint32_t directory_next(directory_listing *listing, directory_entry *entry) {
    if (const uint32_t failure = observe_call("directory_next", "")) {
        return failure;
    }
    if (!listing->found_is_new && !FindNextFileA(listing->search, &listing->found)) {
        return error_unless(FALSE);
    }
    listing->found_is_new = false;
    const bool is_directory = listing->found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
    *entry = {listing->found.cFileName, is_directory ? attribute_directory : attribute_normal};
    return error_none;
}

void directory_close(directory_listing *listing) {
    if (listing) {
        FindClose(listing->search);
        free(listing);
    }
}

uint32_t directory_create(const char *path) {
    system_path resolved;
    const uint32_t failure = begin_path_call("directory_create", path, &resolved);
    return failure ? failure : error_unless(CreateDirectoryA(resolved.text, nullptr));
}

uint32_t directory_remove(const char *path) {
    system_path resolved;
    const uint32_t failure = begin_path_call("directory_remove", path, &resolved);
    return failure ? failure : error_unless(RemoveDirectoryA(resolved.text));
}

} // namespace quillfence::platform
