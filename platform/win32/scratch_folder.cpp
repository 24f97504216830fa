// The system calls a handler on a thread of its own, while the others go on.
#include <cstdio>
#include <cstring>

#include "../scratch_steps.h"
#include "platform/error_numbers.h"
#include "platform/format.h"
#include "system.h"

namespace quillfence::platform {

// --- the requests to end ------------------------------------------------------------------------

// The next handler is asked as well: the system's own ends the process.
static BOOL WINAPI on_request(DWORD) {
    scratch_remove_all();
    return FALSE;
}

void scratch_listen() {
    static bool listens;
    listens = listens || SetConsoleCtrlHandler(on_request, TRUE);
}

// A handler that comes in between leaves an empty folder.
void scratch_hold_requests() {}
void scratch_take_requests() {}

// --- the folders --------------------------------------------------------------------------------

uint32_t scratch_create(const char *path) {
    return error_unless(CreateDirectoryA(path, nullptr));
}

static bool is_dots(const char *name) {
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

static void remove_entry(const char *folder, const WIN32_FIND_DATAA &entry) {
    char path[MAX_PATH + 1];
    if (is_dots(entry.cFileName) ||
        format_text(path, sizeof path, "%s\\%s", folder, entry.cFileName) < 0) {
        return;
    }
    const DWORD is = entry.dwFileAttributes;
    if (!(is & FILE_ATTRIBUTE_DIRECTORY)) {
        DeleteFileA(path);
    } else if (is & FILE_ATTRIBUTE_REPARSE_POINT) {
        RemoveDirectoryA(path); // the link alone
    } else {
        scratch_remove_tree(path);
    }
}

uint32_t scratch_remove_tree(const char *path) {
    char pattern[MAX_PATH + 1];
    if (format_text(pattern, sizeof pattern, "%s\\*", path) < 0) {
        return error_filename_too_long;
    }
    WIN32_FIND_DATAA entry;
    const HANDLE search = FindFirstFileA(pattern, &entry);
    if (search != INVALID_HANDLE_VALUE) {
        do {
            remove_entry(path, entry);
        } while (FindNextFileA(search, &entry));
        FindClose(search);
    }
    const uint32_t error = error_unless(RemoveDirectoryA(path));
    return error == error_file_not_found || error == error_path_not_found ? uint32_t{error_none}
                                                                          : error;
}

} // namespace quillfence::platform
