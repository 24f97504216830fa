// Files: a thin layer over the platform's file functions that every file of the system goes
// through. Each operation reports under its own name and "vc_file".
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/file.h"
#include "platform/format.h"

namespace quillfence {

using vc_handle = platform::file_handle;
inline constexpr vc_handle vc_invalid_handle = platform::invalid_file;

inline constexpr int vc_type_file = 0;
inline constexpr int vc_type_directory = 16;

// Kept on purpose: a missing file is created empty, also when it is opened for reading.
vc_handle vc_open_ex(const char *path, int lock, int write, int unused);
int vc_close(vc_handle file);
int vc_write(vc_handle file, const void *buffer, uint32_t count);
int vc_read(vc_handle file, void *buffer, int64_t count);
int vc_read_nonblock(vc_handle file, void *buffer, int64_t count, int required, int unused,
                     uint32_t *delivered);
int vc_seek(vc_handle file, int32_t offset, int origin);
int32_t vc_tell(vc_handle file);
uint32_t vc_filesize(vc_handle file);
int vc_truncate(vc_handle file);
char *vc_fd_get_contents_ex(vc_handle file, uint64_t *size);
char *vc_file_get_contents_ex(const char *path, uint64_t *size);
int vc_file_exists_ex(const char *path, int type);
int vc_get_filesize(const char *path, uint64_t *size);
int vc_file_executable(const char *path);
char *vc_tmp_file(const char *base_name);
int vc_copyfile(const char *destination, const char *source);
int vc_fprintf(vc_handle file, const char *format, ...) QF_PRINTF_LIKE(2, 3);
int vc_readline(vc_handle file, char *buffer, uint32_t size);

} // namespace quillfence
