// Names below a drive, found whatever their letter case, as on Windows. Internal to the Linux side.
//
// The exact name comes first and costs nothing more. Only when it is missing is the folder listed,
// once, by the call that missed it; of several names that differ in case alone the first in byte
// order is taken, with a warning. The same holds for each folder on the way. Letters are ASCII.
#pragma once

#include <cerrno>
#include <cstdint>

#include "errors.h"
#include "platform/error_numbers.h"
#include "system_path.h"
#include "uninterrupted.h"

namespace quillfence::platform {

// Gives the names of a missing path the letter case that they have in their folders, as far as they
// are there. 0 when the path is other than before and exists now; otherwise 2, or 3 when a folder
// on the way is missing.
uint32_t find_other_case(system_path *path);

// The same for a path that may exist as it is; for one that is about to be created or given up.
void settle_case(system_path *path);

// Tells the administrator when the folder that stands for the path's drive can't be read.
void check_drive_folder(const system_path &path);

// Makes a system call about a path, and once more when the path is missing for its letter case
// alone. The call answers a negative number, with errno set, for failure. 0 or an error number;
// errno is that of the last call.
template <class call_type>
uint32_t call_with_path(system_path *path, call_type call) {
    if (uninterrupted(call) >= 0) {
        return error_none;
    }
    int number = errno;
    uint32_t error = error_none;
    if (path->drive_names && number == ENOENT) {
        error = find_other_case(path);
        if (!error) {
            if (uninterrupted(call) >= 0) {
                return error_none;
            }
            number = errno;
        }
    } else if (path->drive && (number == ENOTDIR || number == EACCES)) {
        check_drive_folder(*path);
    }
    if (!error) {
        error = error_of_errno_for(number, path->text);
    }
    errno = number;
    return error;
}

} // namespace quillfence::platform
