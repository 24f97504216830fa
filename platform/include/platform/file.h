// Files, as the Win32 file API sees them. Functions return 0 or a Win32 error number: 2 for a
// missing file, 3 for a missing folder on the way to it (and for a null or empty path), 5 for a
// folder in a file's place or a right that is missing, 6 for a handle that is not open, 112 for a
// full disk, 206 for a path that is too long. Results are set on success; on failure a count is 0,
// a handle invalid, a mapping empty.
//
// Paths: on Linux a path that begins with a drive letter and a colon ("c:/quillfence/control") is
// looked up under the directory named by QUILLFENCE_DRIVE_C (for c:; QUILLFENCE_DRIVE_D for d:
// and so on), and without that variable as a relative path, literally. Backslashes in such a path
// count as slashes. Any other path is taken as it is. Only an interrupted call is retried. Files
// are not inherited by programs started from here. On both systems a program can have c: looked up
// elsewhere (platform/surroundings.h).
//
// Names below a drive are found whatever the case of their ASCII letters, each folder on the way
// included, and nothing is made beside a name that differs in case alone. On Linux the exact name
// comes first; only a call that misses it lists the folder. When several names differ in case alone
// the first in byte order is taken, with a warning (platform/complaint.h). A drive's folder that
// can't be read is an error there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>

namespace quillfence::platform {

// A Windows file handle or a POSIX descriptor. All ones is invalid; 0 is a valid descriptor.
using file_handle = intptr_t;
inline constexpr file_handle invalid_file = -1;

enum class disposition : uint8_t {
    open_existing, // error 2 or 3 when missing
    open_always,   // created empty when missing
    create_always, // created, or emptied
    create_new,    // error 80 when it exists
};

struct file_options {
    bool write = false;  // read and write instead of reading only
    bool append = false; // write only, and each write goes behind all bytes that are there by then,
                         // so that those of several processes never mix
    bool lock = false;   // no other writing open while this one lives (error 32); on Linux an
                         // advisory lock, which excludes other locked opens alone
    bool among_writers = false; // for writing: while this one lives nobody gets a `lock`, and while
                                // somebody has one, error 32. On Linux an advisory lock, and the
                                // system's error where it has none for this file (NFS refuses it
                                // to `append`); on Windows so are all that write
    bool of_owner = false;      // when it is made, nobody but its owner may read it; on Windows its
                                // folder's rights hold
    disposition when = disposition::open_existing;
};

enum class seek_origin : uint8_t { begin = 0, current = 1, end = 2 };

// Attribute bits of path_attributes.
inline constexpr uint32_t attribute_directory = 16;
inline constexpr uint32_t attribute_normal = 128;

// A file that is locked by somebody else is not emptied, either. What is opened for reading only is
// a file: a pipe, socket or device in its place is refused (5) without waiting for its other end. A
// pipe that nobody reads is not waited for by `append` either (232).
uint32_t file_open(const char *path, file_options options, file_handle *opened);
uint32_t file_close(file_handle file);

// Reads or writes up to size bytes with one system call. *moved receives the count; a read at the
// end of the file gives 0 bytes and success, as does one from a pipe without a writer. A write to
// a closed pipe or socket fails (109 or 232) without a signal: on Linux SIGPIPE is held back from
// the writing thread for that one call, and the process's own handling of it stays as it is.
uint32_t file_read(file_handle file, void *buffer, uint32_t size, uint32_t *moved);
uint32_t file_write(file_handle file, const void *bytes, uint32_t size, uint32_t *moved);

// Reads up to size bytes from an offset, with one system call and without regard to where the file
// stands, so that several threads may read from one handle. 0 bytes and success at the end.
uint32_t file_read_at(file_handle file, int64_t offset, void *buffer, uint32_t size,
                      uint32_t *moved);

// A pipe: what is written to one end is read from the other. For tests.
uint32_t file_pipe(file_handle *reader, file_handle *writer);

// *position (may be null) receives the new offset from the file's beginning, which may lie behind
// its end. Before its beginning: error 131, and the position stays.
uint32_t file_seek(file_handle file, int64_t offset, seek_origin origin, int64_t *position);
uint32_t file_size(file_handle file, uint64_t *size);
// When the file's contents last changed, in seconds since 1970-01-01 00:00:00 UTC.
uint32_t file_changed(file_handle file, int64_t *seconds);
// What tells the file from all others that are there at the same time, by whatever name it was
// opened. A file that is gone may leave its identity to a later one.
struct file_identity {
    uint64_t volume;
    uint64_t number;
    bool operator==(const file_identity &) const = default;
};
uint32_t file_identify(file_handle file, file_identity *identity);
// Whether nobody but its owner may read it (and who may do anything). On Windows always so: there
// it is the folder's rights that say who may, and they are not looked at.
uint32_t file_is_private(file_handle file, bool *is);
uint32_t file_truncate(file_handle file); // at the current position
uint32_t file_sync(file_handle file);     // to stable storage; needs a file open for writing

// A file mapped for reading. Null and size 0 for an empty file. The mapping outlives the handle.
// Bytes that another process cuts off a mapped file can't be read any more, and trying to ends the
// process: map only files that are replaced as a whole, or that nobody else shortens.
struct file_mapping {
    const unsigned char *bytes;
    uint64_t size;
};
uint32_t file_map(file_handle file, file_mapping *mapping);
void file_unmap(file_mapping *mapping);

// One of the two attribute bits. A link is what it points to.
uint32_t path_attributes(const char *path, uint32_t *attributes);

// What tells that a path leads to another file than before, or that its file holds something else:
// compared as a whole, and otherwise without a meaning. A link is what it points to.
struct path_stamp {
    uint64_t volume;
    uint64_t file;
    uint64_t size;
    int64_t written; // when its bytes last changed
    int64_t changed; // on Linux also when its name, owner or rights did; on Windows its making
    bool operator==(const path_stamp &) const = default;
};
uint32_t path_stamp_of(const char *path, path_stamp *stamp);

// A copy onto the same file, whatever its other name (a hard link, a link, another spelling), fails
// with 32 and leaves it alone. On Linux a copy that fails halfway is removed.
uint32_t path_copy(const char *source, const char *destination); // overwrites
uint32_t path_rename(const char *from, const char *to);          // 183 when `to` exists
// Atomic; `to` may exist, and may be open elsewhere for reading. On Windows a file that somebody
// keeps open without a share for deleting (errors 5 and 32) is tried again for a second, and the
// new name is on the disk when this returns; on Linux path_sync_folder (platform/edit.h) sees to
// that.
uint32_t path_replace(const char *from, const char *to);
uint32_t path_delete(const char *path); // a file

// The path as a library that opens files by itself needs it, in buffer. 0 or an error number (206
// when it does not fit).
uint32_t path_native(const char *path, char *buffer, size_t size);

// The standard library's buffered stream on such a path; null with errno set on failure. The mode
// is fopen's, and always binary. As with file_open, what is opened for reading only is a file
// (EACCES).
FILE *stream_open(const char *path, const char *mode);

struct stream_closer {
    void operator()(FILE *stream) const {
        fclose(stream);
    }
};
using stream_ptr = std::unique_ptr<FILE, stream_closer>;
// Flushes the stream and cuts its file to size bytes; 0 or an errno value.
int stream_truncate(FILE *stream, int64_t size);

// Whether a stream is a terminal that somebody may be looking at.
bool stream_is_terminal(FILE *stream);

// The process's standard input and output as files.
file_handle file_standard_input();
file_handle file_standard_output();
file_handle file_standard_error();

// For a program's first line: the standard streams carry bytes as they are, and a reader that has
// gone away makes a write fail instead of ending the program. On Linux a closed standard error
// becomes /dev/null, so that no file gets its number and then the events.
void prepare_standard_streams();

} // namespace quillfence::platform
