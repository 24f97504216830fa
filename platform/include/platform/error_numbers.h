// The Win32 error numbers in which the seam speaks on both systems.
#pragma once

#include <cerrno>
#include <cstdint>

namespace quillfence::platform {

enum : uint32_t {
    error_none = 0,
    error_file_not_found = 2,
    error_path_not_found = 3,
    error_too_many_open_files = 4,
    error_access_denied = 5,
    error_invalid_handle = 6,
    error_not_enough_memory = 8,
    error_not_same_device = 17,
    error_no_more_files = 18,
    error_write_protect = 19,
    error_seek = 25,
    error_gen_failure = 31,
    error_sharing_violation = 32,
    error_not_supported = 50,
    error_file_exists = 80,
    error_invalid_parameter = 87,
    error_broken_pipe = 109,
    error_disk_full = 112,
    error_insufficient_buffer = 122,
    error_invalid_name = 123,
    error_mod_not_found = 126,
    error_proc_not_found = 127,
    error_negative_seek = 131,
    error_dir_not_empty = 145,
    error_busy = 170,
    error_already_exists = 183,
    error_envvar_not_found = 203,
    error_filename_too_long = 206,
    error_file_too_large = 223,
    error_no_data = 232,
    error_more_data = 234,
    error_no_more_items = 259,
    error_directory = 267,
    error_not_owner = 288,
    error_operation_aborted = 995,
    error_not_registry_file = 1017,
    error_io_device = 1117,
    error_cannot_resolve_filename = 1921,
};

// The C library's number for such an error, for messages that show the text of strerror.
constexpr int errno_of(uint32_t error) {
    switch (error) {
    case error_none:
        return 0;
    case error_file_not_found:
    case error_path_not_found:
    case error_no_more_files:
    case error_invalid_name:
        return ENOENT;
    case error_too_many_open_files:
        return EMFILE;
    case error_access_denied:
    case error_write_protect:
    case error_sharing_violation:
        return EACCES;
    case error_invalid_handle:
        return EBADF;
    case error_not_enough_memory:
        return ENOMEM;
    case error_file_exists:
    case error_already_exists:
        return EEXIST;
    case error_broken_pipe:
    case error_no_data:
        return EPIPE;
    case error_disk_full:
        return ENOSPC;
    case error_dir_not_empty:
        return ENOTEMPTY;
    case error_file_too_large:
        return EFBIG;
    case error_directory:
        return ENOTDIR;
    case error_gen_failure:
    case error_io_device:
        return EIO;
    case error_operation_aborted:
        return EINTR;
    default:
        return EINVAL;
    }
}

} // namespace quillfence::platform
