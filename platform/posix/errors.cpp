#include "errors.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <sys/stat.h>

#include "../errno_of_error.h"
#include "platform/error_numbers.h"

namespace quillfence::platform {

namespace {

struct number_pair {
    int number;
    uint32_t error;
};

} // namespace

// The first pair of an error is the one that errno_of_error gives back.
static constexpr number_pair pairs[] = {
    {0, error_none},
    {ENOENT, error_file_not_found},
    {ENOTDIR, error_path_not_found},
    {EMFILE, error_too_many_open_files},
    {ENFILE, error_too_many_open_files},
    {EACCES, error_access_denied},
    {EPERM, error_access_denied},
    {EISDIR, error_access_denied},
    {EBADF, error_invalid_handle},
    {ENOMEM, error_not_enough_memory},
    {EXDEV, error_not_same_device},
    {EROFS, error_write_protect},
    {ESPIPE, error_seek},
    {EAGAIN, error_sharing_violation},
    {ETXTBSY, error_sharing_violation},
    {EOPNOTSUPP, error_not_supported},
    {ENOSYS, error_not_supported},
    {ENOLCK, error_not_supported},
    {EEXIST, error_file_exists},
    {EINVAL, error_invalid_parameter},
    {EPIPE, error_no_data},
    {ENXIO, error_no_data}, // a pipe that nobody reads was to be written
    {ECONNRESET, error_broken_pipe},
    {ENOSPC, error_disk_full},
    {EDQUOT, error_disk_full},
    {ENOTEMPTY, error_dir_not_empty},
    {EBUSY, error_busy},
    {ENAMETOOLONG, error_filename_too_long},
    {EFBIG, error_file_too_large},
    {EOVERFLOW, error_file_too_large},
    {EIO, error_io_device},
    {ELOOP, error_cannot_resolve_filename},
};

static bool parent_is_directory(const char *path) {
    size_t length = strlen(path);
    while (length > 0 && path[length - 1] == '/') {
        --length;
    }
    while (length > 0 && path[length - 1] != '/') {
        --length;
    }
    if (length == 0) {
        return *path != '\0';
    }
    char parent[PATH_MAX];
    if (length >= sizeof parent) {
        return false;
    }
    memcpy(parent, path, length);
    parent[length] = '\0';
    struct stat found;
    return stat(parent, &found) == 0 && S_ISDIR(found.st_mode);
}

uint32_t error_of_errno(int number) {
    for (const number_pair &pair : pairs) {
        if (pair.number == number) {
            return pair.error;
        }
    }
    return error_gen_failure;
}

uint32_t error_of_errno_for(int number, const char *system_path) {
    if (number == ENOENT && !parent_is_directory(system_path)) {
        return error_path_not_found;
    }
    return error_of_errno(number);
}

int errno_of_error(uint32_t error) {
    if (error == error_path_not_found) {
        return ENOENT;
    }
    for (const number_pair &pair : pairs) {
        if (pair.error == error) {
            return pair.number;
        }
    }
    return EIO;
}

} // namespace quillfence::platform
