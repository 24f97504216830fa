#include "platform/file.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "../errno_of_error.h"
#include "errors.h"
#include "file_steps.h"
#include "letter_case.h"
#include "platform/error_numbers.h"
#include "platform/format.h"
#include "platform/observer.h"
#include "system_path.h"
#include "uninterrupted.h"

namespace quillfence::platform {

static constexpr mode_t new_file_mode = 0666; // less the process's umask
static constexpr mode_t owners_file_mode = 0600;

// The descriptor of a handle; -1, which every call refuses, for a number that is none.
static int descriptor_of(file_handle file) {
    return file >= 0 && file <= INT_MAX ? static_cast<int>(file) : -1;
}

// Asks the observer about a path and resolves it.
static uint32_t begin_path_call(const char *call, const char *path, system_path *resolved) {
    const uint32_t failure = observe_call(call, path);
    return failure ? failure : resolve_path(path, resolved);
}

static int creation_flags(disposition when) {
    switch (when) {
    case disposition::open_existing:
        return 0;
    case disposition::create_new:
        return O_CREAT | O_EXCL;
    default:
        return O_CREAT;
    }
}

// What is left to do on a new descriptor: refuse what is no file, lock, and only then empty the
// file, so that a file that somebody else has locked keeps its bytes.
static uint32_t finish_open(int descriptor, file_options options) {
    struct stat found;
    if (fstat(descriptor, &found) != 0) {
        return error_of_errno(errno);
    }
    const bool only_reads = !options.write && !options.append;
    if (S_ISDIR(found.st_mode) || (only_reads && !S_ISREG(found.st_mode))) {
        return error_access_denied;
    }
    // It was opened at once; its writes wait, as those of others do.
    if (options.append && !S_ISREG(found.st_mode) && fcntl(descriptor, F_SETFL, O_APPEND) != 0) {
        return error_of_errno(errno);
    }
    const int lock = options.lock ? LOCK_EX : options.among_writers ? LOCK_SH : 0;
    if (lock && uninterrupted([&] { return flock(descriptor, lock | LOCK_NB); }) != 0) {
        return error_of_errno(errno);
    }
    if (options.when == disposition::create_always && S_ISREG(found.st_mode) && found.st_size > 0 &&
        uninterrupted([&] { return ftruncate(descriptor, 0); }) != 0) {
        return error_of_errno(errno);
    }
    return error_none;
}

// A read or write on a descriptor that is open, but not for that, is "access denied" in Win32.
static uint32_t error_of_transfer(int descriptor, int number) {
    const bool wrong_direction = number == EBADF && fcntl(descriptor, F_GETFD) != -1;
    return wrong_direction ? error_access_denied : error_of_errno(number);
}

// write() on something other than a file or socket. Its SIGPIPE, which is sent to the writing
// thread alone, is held back and taken away, unless one was waiting before.
static ssize_t write_without_signal(int descriptor, const void *bytes, size_t size) {
    sigset_t pipe_signal;
    sigset_t mask_before;
    sigset_t pending_before;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    sigpending(&pending_before);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &mask_before);
    const ssize_t written = uninterrupted([&] { return write(descriptor, bytes, size); });
    const int number = errno;
    if (written < 0 && number == EPIPE && !sigismember(&pending_before, SIGPIPE)) {
        const timespec at_once = {};
        uninterrupted([&] { return sigtimedwait(&pipe_signal, nullptr, &at_once); });
    }
    pthread_sigmask(SIG_SETMASK, &mask_before, nullptr);
    errno = number;
    return written;
}

static ssize_t write_to(int descriptor, const void *bytes, size_t size) {
    struct stat found;
    if (fstat(descriptor, &found) != 0) {
        return -1;
    }
    if (S_ISREG(found.st_mode)) {
        return uninterrupted([&] { return write(descriptor, bytes, size); });
    }
    if (S_ISSOCK(found.st_mode)) {
        return uninterrupted([&] { return send(descriptor, bytes, size, MSG_NOSIGNAL); });
    }
    return write_without_signal(descriptor, bytes, size);
}

static bool same_file(const struct stat &one, const struct stat &other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// Copies from the source's position to its end; 0 or an errno value.
static int copy_bytes(int source, int destination) {
    char block[65536];
    for (;;) {
        const ssize_t got = uninterrupted([&] { return read(source, block, sizeof block); });
        if (got <= 0) {
            return got == 0 ? 0 : errno;
        }
        for (ssize_t done = 0; done < got;) {
            const ssize_t put = uninterrupted(
                [&] { return write(destination, block + done, static_cast<size_t>(got - done)); });
            if (put < 0) {
                return errno;
            }
            done += put;
        }
    }
}

// Copies an open source over the file at `to`, which gets the source's permissions when it is new.
static uint32_t copy_to(int source, const struct stat &source_facts, const char *to) {
    const int destination = uninterrupted(
        [&] { return open(to, O_WRONLY | O_CREAT | O_CLOEXEC, source_facts.st_mode & 0777); });
    if (destination < 0) {
        return error_of_errno_for(errno, to);
    }
    struct stat facts;
    if (fstat(destination, &facts) != 0) {
        const int number = errno;
        close(destination);
        return error_of_errno(number);
    }
    if (same_file(source_facts, facts)) {
        close(destination);
        return error_sharing_violation;
    }
    const bool regular = S_ISREG(facts.st_mode);
    int number = regular && ftruncate(destination, 0) != 0 ? errno : 0;
    if (number == 0) {
        number = copy_bytes(source, destination);
    }
    if (close(destination) != 0 && number == 0 && errno != EINTR) {
        number = errno;
    }
    if (number != 0 && regular) {
        unlink(to); // as Windows does: half a copy never passes for a whole one
    }
    return error_of_errno(number);
}

int rename_in_steps(const char *from, const char *to) {
    struct stat found;
    if (lstat(from, &found) != 0) {
        return -1;
    }
    if (S_ISREG(found.st_mode)) {
        if (link(from, to) == 0) {
            return unlink(from);
        }
        if (errno != EPERM && errno != EOPNOTSUPP) {
            return -1;
        }
    }
    if (lstat(to, &found) == 0) {
        errno = EEXIST;
        return -1;
    }
    return rename(from, to);
}

static int rename_without_replacing(const char *from, const char *to) {
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) {
        return 0;
    }
    return errno == ENOSYS || errno == EINVAL ? rename_in_steps(from, to) : -1;
}

// ENOENT of a rename is about the old name, or else about the folder of the new one.
static uint32_t error_of_rename(int number, const char *from, const char *to) {
    struct stat found;
    if (number == ENOENT) {
        return lstat(from, &found) == 0 ? error_path_not_found : error_of_errno_for(number, from);
    }
    if (number == EEXIST) {
        return error_already_exists;
    }
    if (number == ENOTDIR && stat(to, &found) == 0) {
        return error_access_denied; // a folder over a file
    }
    return error_of_errno(number);
}

// The two paths of a call, resolved, in the letter case that is there; the call is about the first.
static uint32_t begin_two_path_call(const char *call, const char *first, const char *second,
                                    system_path *first_resolved, system_path *second_resolved) {
    if (const uint32_t failure = begin_path_call(call, first, first_resolved)) {
        return failure;
    }
    if (const uint32_t failure = resolve_path(second, second_resolved)) {
        return failure;
    }
    settle_case(first_resolved);
    settle_case(second_resolved);
    return error_none;
}

// A file that is renamed to its own name in another letter case gets that.
static void keep_new_case(const system_path &old_name, const char *to, system_path *new_name) {
    if (!new_name->drive_names || strcmp(old_name.text, new_name->text) != 0) {
        return;
    }
    system_path wanted;
    resolve_path(to, &wanted);
    const char *const last = strrchr(wanted.text, '/') + 1;
    strcpy(new_name->buffer + (last - wanted.text), last);
}

// open() that waits for nobody at the other end of a pipe. A file that somebody else holds a lease
// of, as Samba does, is waited for.
static int open_at_once(const char *path, int flags, mode_t mode) {
    const int descriptor = open(path, flags | O_NONBLOCK, mode);
    struct stat found;
    if (descriptor < 0 && errno == EWOULDBLOCK && stat(path, &found) == 0 &&
        S_ISREG(found.st_mode)) {
        return open(path, flags, mode);
    }
    return descriptor;
}

// Below a drive a file is never made beside one whose name differs in letter case alone: it is
// looked for before it is made.
static uint32_t open_path(system_path *path, int flags, mode_t mode, int *descriptor) {
    const auto open_with = [&](int chosen) {
        const bool waits = (chosen & O_ACCMODE) != O_RDWR;
        *descriptor =
            waits ? open_at_once(path->text, chosen, mode) : open(path->text, chosen, mode);
        return *descriptor;
    };
    const bool creates = flags & O_CREAT;
    if (!creates || !path->drive_names) {
        return call_with_path(path, [&] { return open_with(flags); });
    }
    if (flags & O_EXCL) {
        settle_case(path);
    } else {
        const uint32_t error = call_with_path(path, [&] { return open_with(flags & ~O_CREAT); });
        if (error != error_file_not_found) {
            return error;
        }
    }
    return call_with_path(path, [&] { return open_with(flags); });
}

uint32_t file_open(const char *path, file_options options, file_handle *opened) {
    *opened = invalid_file;
    system_path resolved;
    if (const uint32_t failure = begin_path_call("file_open", path, &resolved)) {
        return failure;
    }
    const bool writes = options.write || options.when == disposition::create_always;
    const int access = options.append ? O_WRONLY | O_APPEND : writes ? O_RDWR : O_RDONLY;
    const int flags = access | creation_flags(options.when) | O_CLOEXEC | O_NOCTTY;
    const mode_t mode = options.of_owner ? owners_file_mode : new_file_mode;
    int descriptor = -1;
    if (const uint32_t failure = open_path(&resolved, flags, mode, &descriptor)) {
        return failure;
    }
    if (const uint32_t failure = finish_open(descriptor, options)) {
        close(descriptor);
        return failure;
    }
    *opened = descriptor;
    return error_none;
}

uint32_t file_close(file_handle file) {
    const uint32_t failure = observe_call("file_close", "");
    // An interrupted close has closed the descriptor all the same.
    const uint32_t error =
        close(descriptor_of(file)) == 0 || errno == EINTR ? error_none : error_of_errno(errno);
    return failure ? failure : error;
}

uint32_t file_read(file_handle file, void *buffer, uint32_t size, uint32_t *moved) {
    *moved = 0;
    if (const uint32_t failure = observe_transfer("file_read", &size)) {
        return failure;
    }
    const int descriptor = descriptor_of(file);
    const ssize_t got = uninterrupted([&] { return read(descriptor, buffer, size); });
    if (got < 0) {
        return error_of_transfer(descriptor, errno);
    }
    *moved = static_cast<uint32_t>(got);
    return error_none;
}

uint32_t file_read_at(file_handle file, int64_t offset, void *buffer, uint32_t size,
                      uint32_t *moved) {
    *moved = 0;
    if (const uint32_t failure = observe_transfer("file_read_at", &size)) {
        return failure;
    }
    const int descriptor = descriptor_of(file);
    const ssize_t got =
        uninterrupted([&] { return pread(descriptor, buffer, size, static_cast<off_t>(offset)); });
    if (got < 0) {
        return error_of_transfer(descriptor, errno);
    }
    *moved = static_cast<uint32_t>(got);
    return error_none;
}

uint32_t file_write(file_handle file, const void *bytes, uint32_t size, uint32_t *moved) {
    *moved = 0;
    if (const uint32_t failure = observe_transfer("file_write", &size)) {
        return failure;
    }
    const int descriptor = descriptor_of(file);
    const ssize_t put = write_to(descriptor, bytes, size);
    if (put < 0) {
        return error_of_transfer(descriptor, errno);
    }
    *moved = static_cast<uint32_t>(put);
    return error_none;
}

uint32_t file_pipe(file_handle *reader, file_handle *writer) {
    *reader = *writer = invalid_file;
    if (const uint32_t failure = observe_call("file_pipe", "")) {
        return failure;
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return error_of_errno(errno);
    }
    *reader = ends[0];
    *writer = ends[1];
    return error_none;
}

uint32_t file_seek(file_handle file, int64_t offset, seek_origin origin, int64_t *position) {
    static constexpr int origins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    if (const uint32_t failure = observe_call("file_seek", "")) {
        return failure;
    }
    const auto index = static_cast<size_t>(origin);
    if (index >= sizeof origins / sizeof *origins) {
        return error_invalid_parameter;
    }
    const off_t reached = lseek(descriptor_of(file), offset, origins[index]);
    if (reached < 0) {
        return errno == EINVAL ? error_negative_seek : error_of_errno(errno);
    }
    if (position) {
        *position = reached;
    }
    return error_none;
}

uint32_t file_size(file_handle file, uint64_t *size) {
    *size = 0;
    if (const uint32_t failure = observe_call("file_size", "")) {
        return failure;
    }
    struct stat found;
    if (fstat(descriptor_of(file), &found) != 0) {
        return error_of_errno(errno);
    }
    *size = static_cast<uint64_t>(found.st_size);
    return error_none;
}

uint32_t file_changed(file_handle file, int64_t *seconds) {
    *seconds = 0;
    if (const uint32_t failure = observe_call("file_changed", "")) {
        return failure;
    }
    struct stat found;
    if (fstat(descriptor_of(file), &found) != 0) {
        return error_of_errno(errno);
    }
    *seconds = found.st_mtim.tv_sec;
    return error_none;
}

uint32_t file_identify(file_handle file, file_identity *identity) {
    *identity = {};
    if (const uint32_t failure = observe_call("file_identify", "")) {
        return failure;
    }
    struct stat found;
    if (fstat(descriptor_of(file), &found) != 0) {
        return error_of_errno(errno);
    }
    *identity = {found.st_dev, found.st_ino};
    return error_none;
}

uint32_t file_is_private(file_handle file, bool *is) {
    *is = false;
    if (const uint32_t failure = observe_call("file_is_private", "")) {
        return failure;
    }
    struct stat found;
    if (fstat(descriptor_of(file), &found) != 0) {
        return error_of_errno(errno);
    }
    *is = !(found.st_mode & (S_IRGRP | S_IROTH));
    return error_none;
}

uint32_t file_truncate(file_handle file) {
    if (const uint32_t failure = observe_call("file_truncate", "")) {
        return failure;
    }
    const int descriptor = descriptor_of(file);
    const off_t position = lseek(descriptor, 0, SEEK_CUR);
    if (position < 0) {
        return error_of_errno(errno);
    }
    if (uninterrupted([&] { return ftruncate(descriptor, position); }) == 0) {
        return error_none;
    }
    return errno == EINVAL ? error_access_denied : error_of_errno(errno); // open for reading only
}

uint32_t file_sync(file_handle file) {
    if (const uint32_t failure = observe_call("file_sync", "")) {
        return failure;
    }
    const int descriptor = descriptor_of(file);
    return uninterrupted([&] { return fsync(descriptor); }) == 0 ? error_none
                                                                 : error_of_errno(errno);
}

uint32_t file_map(file_handle file, file_mapping *mapping) {
    *mapping = {};
    if (const uint32_t failure = observe_call("file_map", "")) {
        return failure;
    }
    const int descriptor = descriptor_of(file);
    struct stat found;
    if (fstat(descriptor, &found) != 0) {
        return error_of_errno(errno);
    }
    if (found.st_size == 0) {
        return error_none;
    }
    const auto size = static_cast<size_t>(found.st_size);
    void *const bytes = mmap(nullptr, size, PROT_READ, MAP_SHARED, descriptor, 0);
    if (bytes == MAP_FAILED) {
        return error_of_errno(errno);
    }
    *mapping = {static_cast<const unsigned char *>(bytes), size};
    return error_none;
}

void file_unmap(file_mapping *mapping) {
    if (mapping->bytes) {
        munmap(const_cast<unsigned char *>(mapping->bytes), mapping->size);
    }
    *mapping = {};
}

uint32_t path_attributes(const char *path, uint32_t *attributes) {
    *attributes = 0;
    system_path resolved;
    if (const uint32_t failure = begin_path_call("path_attributes", path, &resolved)) {
        return failure;
    }
    struct stat found;
    if (const uint32_t failure =
            call_with_path(&resolved, [&] { return stat(resolved.text, &found); })) {
        return failure;
    }
    *attributes = S_ISDIR(found.st_mode) ? attribute_directory : attribute_normal;
    return error_none;
}

static int64_t nanoseconds_of(const timespec &moment) {
    return int64_t{moment.tv_sec} * 1'000'000'000 + moment.tv_nsec;
}

uint32_t path_stamp_of(const char *path, path_stamp *stamp) {
    *stamp = {};
    system_path resolved;
    if (const uint32_t failure = begin_path_call("path_stamp_of", path, &resolved)) {
        return failure;
    }
    struct stat found;
    if (const uint32_t failure =
            call_with_path(&resolved, [&] { return stat(resolved.text, &found); })) {
        return failure;
    }
    *stamp = {.volume = found.st_dev,
              .file = found.st_ino,
              .size = static_cast<uint64_t>(found.st_size),
              .written = nanoseconds_of(found.st_mtim),
              .changed = nanoseconds_of(found.st_ctim)};
    return error_none;
}

uint32_t path_copy(const char *source, const char *destination) {
    system_path from;
    system_path to;
    if (const uint32_t failure =
            begin_two_path_call("path_copy", source, destination, &from, &to)) {
        return failure;
    }
    const int opened = uninterrupted([&] { return open(from.text, O_RDONLY | O_CLOEXEC); });
    if (opened < 0) {
        return error_of_errno_for(errno, from.text);
    }
    struct stat facts;
    uint32_t error = fstat(opened, &facts) == 0 ? error_none : error_of_errno(errno);
    if (!error) {
        error = S_ISDIR(facts.st_mode) ? error_access_denied : copy_to(opened, facts, to.text);
    }
    close(opened);
    return error;
}

uint32_t path_rename(const char *from, const char *to) {
    system_path old_name;
    system_path new_name;
    if (const uint32_t failure =
            begin_two_path_call("path_rename", from, to, &old_name, &new_name)) {
        return failure;
    }
    keep_new_case(old_name, to, &new_name);
    return rename_without_replacing(old_name.text, new_name.text) == 0
               ? error_none
               : error_of_rename(errno, old_name.text, new_name.text);
}

uint32_t path_replace(const char *from, const char *to) {
    system_path old_name;
    system_path new_name;
    if (const uint32_t failure =
            begin_two_path_call("path_replace", from, to, &old_name, &new_name)) {
        return failure;
    }
    return rename(old_name.text, new_name.text) == 0
               ? error_none
               : error_of_rename(errno, old_name.text, new_name.text);
}

uint32_t path_delete(const char *path) {
    system_path resolved;
    if (const uint32_t failure = begin_path_call("path_delete", path, &resolved)) {
        return failure;
    }
    return call_with_path(&resolved, [&] { return unlink(resolved.text); });
}

uint32_t path_native(const char *path, char *buffer, size_t size) {
    system_path resolved;
    if (const uint32_t failure = resolve_path(path, &resolved)) {
        return failure;
    }
    settle_case(&resolved);
    return format_text(buffer, size, "%s", resolved.text) < 0
               ? static_cast<uint32_t>(error_filename_too_long)
               : error_none;
}

// A stream of a file, which it takes over, for reading; null with errno set.
static FILE *reading_stream(int descriptor) {
    struct stat found;
    FILE *stream = nullptr;
    if (fstat(descriptor, &found) == 0) {
        if (S_ISREG(found.st_mode)) {
            stream = fdopen(descriptor, "r");
        } else {
            errno = EACCES;
        }
    }
    if (!stream) {
        const int number = errno;
        close(descriptor);
        errno = number;
    }
    return stream;
}

static FILE *open_reading_stream(system_path *path) {
    int descriptor = -1;
    return open_path(path, O_RDONLY | O_CLOEXEC | O_NOCTTY, 0, &descriptor)
               ? nullptr
               : reading_stream(descriptor);
}

FILE *stream_open(const char *path, const char *mode) {
    system_path resolved;
    if (const uint32_t failure = begin_path_call("stream_open", path, &resolved)) {
        errno = errno_of_error(failure);
        return nullptr;
    }
    char full_mode[16]; // with the flag that closes the stream in programs started from here
    if (!mode || strlen(mode) + sizeof "e" > sizeof full_mode) {
        errno = EINVAL;
        return nullptr;
    }
    if (*mode == 'r' && !strchr(mode, '+')) {
        return open_reading_stream(&resolved);
    }
    strcat(strcpy(full_mode, mode), "e");
    FILE *stream = nullptr;
    if (*mode != 'r') {
        settle_case(&resolved);
    }
    call_with_path(&resolved, [&] {
        stream = fopen(resolved.text, full_mode);
        return stream ? 0 : -1;
    });
    return stream;
}

int stream_truncate(FILE *stream, int64_t size) {
    if (const uint32_t failure = observe_call("stream_truncate", "")) {
        return errno_of_error(failure);
    }
    if (fflush(stream) != 0) {
        return errno;
    }
    const int descriptor = fileno(stream);
    return uninterrupted([&] { return ftruncate(descriptor, size); }) == 0 ? 0 : errno;
}

bool stream_is_terminal(FILE *stream) {
    return stream && isatty(fileno(stream));
}

file_handle file_standard_input() {
    return STDIN_FILENO;
}

file_handle file_standard_output() {
    return STDOUT_FILENO;
}

file_handle file_standard_error() {
    return STDERR_FILENO;
}

void prepare_standard_streams() {
    signal(SIGPIPE, SIG_IGN);
    if (fcntl(STDERR_FILENO, F_GETFD) < 0) {
        const int nothing = open("/dev/null", O_RDWR);
        if (nothing >= 0 && nothing != STDERR_FILENO) {
            dup2(nothing, STDERR_FILENO);
            close(nothing);
        }
    }
}

} // namespace quillfence::platform
