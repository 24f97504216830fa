// Files: a thin layer over the platform's file functions that says in the log what failed. Lookups
// that must not create a file and must not speak of a missing one ask the platform themselves.
//
// Results are 1 for success and 0 for failure unless a comment says otherwise. Each operation
// reports under its own name and "vc_file". A null or empty path, a null buffer, a zero count or
// the invalid handle gives an ERROR line with the EINVAL text and the failure result; a failed
// system call gives the line named below with the system's (Win32) error number. An operation that
// fails closes only what it opened itself. Paths are as in platform/file.h; what is opened for
// reading is a file: a pipe or device in its place is refused with error 5 and not waited for.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/edit.h"
#include "platform/file.h"
#include "platform/format.h"

namespace quillfence {

using vc_handle = platform::file_handle;
inline constexpr vc_handle vc_invalid_handle = platform::invalid_file;

inline constexpr int vc_type_file = 0;
inline constexpr int vc_type_directory = 16;

// Opens a file for reading, or with write set for both.
//   lock    nobody else may have it open for writing or locked meanwhile
// Returns the handle, vc_invalid_handle on failure.
// ERROR lines: EINVAL, "unknown error opening - got error code %d".
// Kept on purpose: a missing file is created empty, also when it is opened for reading.
vc_handle vc_open_ex(const char *path, int lock, int write, int unused);
// The same, with lock and write, for an editor: takes the lock of the file's editors as well,
// waiting for another one as platform/edit.h says. 1 or 0; the file is lock->file, and is released
// by platform::edit_lock_release. The lines are those of vc_open_ex, in its name.
//   create  a missing file is created empty; otherwise it is a failure
int vc_open_edit(const char *path, int create, platform::edit_lock *lock);
// Begins a replacement as platform/edit.h describes it; 1 or 0. The new contents are written to
// begun->lock.file. ERROR line, in vc_open_ex's name: "unknown error opening - got error code %d".
int vc_begin_replacement(const char *path, const char *ending, platform::replacement *begun);
// Opens a file, which is created when missing, for vc_append alone. The lines are those of
// vc_open_ex, in its name.
vc_handle vc_open_append(const char *path);
// Opens for reading, as lookups do: what is missing stays missing, also when somebody has deleted
// it since the caller looked, and adds no ERROR line. The lines are vc_open_ex's, in its name.
vc_handle vc_open_existing(const char *path);
// ERROR lines: EINVAL, "error closing got error code %d".
int vc_close(vc_handle file);

// Writes all count bytes, in blocks of at most 4096.
// ERROR lines: EINVAL, "fatal error on block write (w32) got error code %d".
int vc_write(vc_handle file, const void *buffer, uint32_t count);
// Writes all count bytes behind the file's end with one call of the system, so that what several
// processes append never mixes. 0 when only a part of them fits; that part stays.
// ERROR lines: as vc_write.
int vc_append(vc_handle file, const void *buffer, uint32_t count);
// Reads up to count bytes in blocks of at most 4096 and stops at the file's end. The buffer is not
// terminated, and the caller can't tell a short read from a full one. A negative count reads
// nothing and succeeds.
// ERROR lines: "Invalid file handler!", "Invalid buffer parameter!", "Invalid read size: %i",
// "fatal error on read (w32) got error code %d".
int vc_read(vc_handle file, void *buffer, int64_t count);
// The same with an answer.
//   required   must not be 0, and has no other use
//   delivered  receives the number of bytes read, also on a failed read; may be null
// ERROR lines: EINVAL, "fatal error on read (w32) got error code %d".
int vc_read_nonblock(vc_handle file, void *buffer, int64_t count, int required, int unused,
                     uint32_t *delivered);

// Moves the file position. origin is 0 for the file's beginning, 1 for here, 2 for its end.
// ERROR lines: EINVAL, "failed to set file pointer: got error code %d".
int vc_seek(vc_handle file, int32_t offset, int origin);
// The low 32 bits of the file position; -1 for the invalid handle, -2 on failure.
// ERROR lines: EINVAL, "error finding position got error code %d".
int32_t vc_tell(vc_handle file);
// The low 32 bits of the file's size; all ones, without a line, when the system does not tell.
// Kept on purpose: for the invalid handle the ERROR line (EINVAL) is followed by the call.
uint32_t vc_filesize(vc_handle file);
// Cuts the file at its position. ERROR lines: EINVAL, "got error code %d".
int vc_truncate(vc_handle file);

// The bytes from the file position on as a new string, with a NUL behind them; null on failure.
//   size  receives the size of the whole file, also when the position is not its beginning (the
//         string then ends in that many more zeros); may be null
// ERROR lines: EINVAL, ENOMEM, EFBIG above 100 MiB or when the size is not known, and "Cannot read
// content of cid history file", a text that is kept for every file.
char *vc_fd_get_contents_ex(vc_handle file, uint64_t *size);
// The whole of a file, likewise. errno tells the reason of a failure, 0 when there is none to tell.
// ERROR lines: EINVAL, "Failed to get file contents [%s]: %s"; a failed open adds none of its own.
// Kept on purpose: a missing file is created empty and reads as "".
char *vc_file_get_contents_ex(const char *path, uint64_t *size);
// The same of a file that is there, as lookups read it; a missing one stays missing, and gives null
// without an ERROR line.
char *vc_existing_contents(const char *path, uint64_t *size);

// Whether a file (type 0) or a directory (type 16) of that path exists.
// ERROR lines: EINVAL, "Failed to get file attributes [%s]: %d" (not for a missing path).
int vc_file_exists_ex(const char *path, int type);
// A file's size in bytes by its path; 0 without a line when there is no such file.
// ERROR lines: EINVAL (for a null size too), "Failed to open file: %d", "Failed to get filesize:
// %d".
int vc_get_filesize(const char *path, uint64_t *size);
// Whether the path exists as a file. Kept on purpose: permissions are not looked at.
int vc_file_executable(const char *path);

// A new string "<TEMP>/<base name>.<process id>", TEMP being the environment variable or else
// "C:/TEMP"; null on failure. No file is made.
char *vc_tmp_file(const char *base_name);
// Copies source over destination: mind the order. ERROR lines: EINVAL, "Error copying file: %d".
int vc_copyfile(const char *destination, const char *source);

// Writes formatted text of 1 to 1023 characters.
// ERROR lines: EINVAL, "unknown error on vsnprintf() %s" with the text of error 56 for a longer
// text, and those of vc_write (an empty text is a zero count there).
int vc_fprintf(vc_handle file, const char *format, ...) QF_PRINTF_LIKE(2, 3);

// Reads one line, without its LF or CR LF, and leaves the position behind it.
//   buffer  gets at most size bytes; the terminator of a line that fills it is the caller's, who
//           passes the size less one
// Without an LF in the first size bytes these are the line. Only the bytes before the first NUL
// count, so a NUL at the position reads as the end of the file.
// Returns 0 at the end of the file or on failure.
// ERROR lines: EINVAL, the text of error 125 after that of a failed read, and those of vc_tell and
// vc_seek.
int vc_readline(vc_handle file, char *buffer, uint32_t size);

} // namespace quillfence
