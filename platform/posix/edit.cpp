#include "platform/edit.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "errors.h"
#include "letter_case.h"
#include "platform/error_numbers.h"
#include "platform/format.h"
#include "platform/observer.h"
#include "system_path.h"
#include "uninterrupted.h"

namespace quillfence::platform {

static constexpr mode_t new_file_mode = 0666;     // less the process's umask
static constexpr mode_t private_file_mode = 0600; // until it has the rights of another file
static constexpr mode_t readable_file_mode = 0644;
static constexpr mode_t all_rights = 07777;
static constexpr int most_links = 40; // one behind the other; as many as the system follows
static constexpr int64_t longest_wait = 1'000'000'000; // nanoseconds
static constexpr timespec pause_of_wait = {0, 2'000'000};

// The path in the letter case that is there: no editor makes a file beside one whose name differs
// in letter case alone, and all of them lock the same one.
static uint32_t resolve_settled(const char *path, system_path *resolved) {
    const uint32_t failure = resolve_path(path, resolved);
    if (!failure) {
        settle_case(resolved);
    }
    return failure;
}

static uint32_t begin_path_call(const char *call, const char *path, system_path *resolved) {
    const uint32_t failure = observe_call(call, path);
    return failure ? failure : resolve_settled(path, resolved);
}

static int64_t now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// Whether the name leads to the file that is open here.
static bool has_name(int descriptor, const char *name) {
    struct stat open_file;
    struct stat named;
    return fstat(descriptor, &open_file) == 0 && stat(name, &named) == 0 &&
           open_file.st_dev == named.st_dev && open_file.st_ino == named.st_ino;
}

namespace {

// What an attempt at a lock comes to.
enum class attempt : uint8_t {
    locked,
    again, // the name has another file now
    busy,  // somebody else holds it
    failed // errno tells
};

} // namespace

static attempt try_lock(int descriptor, const char *name) {
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK || errno == EINTR ? attempt::busy : attempt::failed;
    }
    return has_name(descriptor, name) ? attempt::locked : attempt::again;
}

// Makes attempts until one succeeds or fails, or somebody else has held the lock for too long: 0 or
// an errno value. An attempt sets *descriptor, which stays open only when it is locked.
template <class attempt_type>
static int lock_in_time(attempt_type attempt_once, int *descriptor) {
    const int64_t deadline = now() + longest_wait;
    for (;;) {
        *descriptor = -1;
        const attempt outcome = attempt_once(descriptor);
        const int number = errno;
        if (outcome == attempt::locked) {
            return 0;
        }
        if (*descriptor >= 0) {
            close(*descriptor);
        }
        if (outcome == attempt::failed || now() > deadline) {
            return outcome == attempt::failed ? number : EWOULDBLOCK;
        }
        if (outcome == attempt::busy) {
            nanosleep(&pause_of_wait, nullptr);
        }
    }
}

static attempt refuse(int number) {
    errno = number;
    return attempt::failed;
}

static attempt open_and_lock(const char *name, int creation, int *descriptor) {
    *descriptor = uninterrupted([&] {
        return open(name, O_RDWR | creation | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, new_file_mode);
    });
    struct stat found;
    if (*descriptor < 0 || fstat(*descriptor, &found) != 0) {
        return attempt::failed;
    }
    return S_ISREG(found.st_mode) ? try_lock(*descriptor, name) : refuse(EISDIR);
}

// Deletes a temporary file that nobody holds any more. Never `locked`.
static attempt delete_left_over(const char *name, int *descriptor) {
    *descriptor = uninterrupted(
        [&] { return open(name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK); });
    if (*descriptor < 0) {
        // A link is none of ours and holds nothing.
        const bool gone = errno == ENOENT || (errno == ELOOP && unlink(name) == 0);
        return gone ? attempt::again : attempt::failed;
    }
    const attempt outcome = try_lock(*descriptor, name);
    if (outcome != attempt::locked) {
        return outcome;
    }
    return unlink(name) == 0 ? attempt::again : attempt::failed;
}

static attempt create_and_lock(const char *name, mode_t mode, int *descriptor) {
    *descriptor = uninterrupted(
        [&] { return open(name, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, mode); });
    if (*descriptor >= 0) {
        return try_lock(*descriptor, name);
    }
    return errno == EEXIST ? delete_left_over(name, descriptor) : attempt::failed;
}

// Owner and rights; the owner first, as its change takes rights away.
static int take_over_rights(int descriptor, const struct stat &model) {
    struct stat own;
    if (fstat(descriptor, &own) != 0) {
        return -1;
    }
    const bool same_owner = own.st_uid == model.st_uid && own.st_gid == model.st_gid;
    if (!same_owner && fchown(descriptor, model.st_uid, model.st_gid) != 0) {
        return -1;
    }
    return fchmod(descriptor, model.st_mode & all_rights);
}

// One link further; the text of a relative link counts from the link's folder. 0 or an errno value.
static int follow_link(char *path, size_t size) {
    char text[PATH_MAX];
    const ssize_t length = readlink(path, text, sizeof text);
    if (length < 0 || length == ssize_t{sizeof text}) {
        return length < 0 ? errno : ENAMETOOLONG;
    }
    const char *const slash = strrchr(path, '/');
    const size_t folder = *text == '/' || !slash ? 0 : static_cast<size_t>(slash - path) + 1;
    if (folder + static_cast<size_t>(length) >= size) {
        return ENAMETOOLONG;
    }
    memcpy(path + folder, text, static_cast<size_t>(length));
    path[folder + static_cast<size_t>(length)] = '\0';
    return 0;
}

static bool is_link(const char *path) {
    struct stat found;
    return lstat(path, &found) == 0 && S_ISLNK(found.st_mode);
}

static uint32_t copy_path(const char *path, char *buffer, size_t size) {
    return format_text(buffer, size, "%s", path) < 0
               ? static_cast<uint32_t>(error_filename_too_long)
               : error_none;
}

uint32_t edit_lock_take(const char *path, disposition when, edit_lock *taken) {
    *taken = {};
    system_path resolved;
    if (const uint32_t failure = begin_path_call("edit_lock_take", path, &resolved)) {
        return failure;
    }
    const int creation = when == disposition::open_existing ? 0 : O_CREAT;
    int descriptor = -1;
    const int number = lock_in_time(
        [&](int *opened) { return open_and_lock(resolved.text, creation, opened); }, &descriptor);
    if (number != 0) {
        return error_of_errno_for(number, resolved.text);
    }
    taken->file = descriptor;
    return error_none;
}

void edit_lock_close_file(edit_lock *) {
    // The lock is on the open file.
}

void edit_lock_release(edit_lock *lock) {
    if (lock->file != invalid_file) {
        file_close(lock->file);
    }
    *lock = {};
}

uint32_t path_target(const char *path, char *buffer, size_t size) {
    system_path resolved;
    if (const uint32_t failure = begin_path_call("path_target", path, &resolved)) {
        return failure;
    }
    if (!is_link(resolved.text)) {
        return copy_path(path, buffer, size);
    }
    if (const uint32_t error = copy_path(resolved.text, buffer, size)) {
        return error;
    }
    for (int links = 0; is_link(buffer); ++links) {
        const int number = links < most_links ? follow_link(buffer, size) : ELOOP;
        if (number != 0) {
            return error_of_errno(number);
        }
    }
    return error_none;
}

uint32_t temporary_create(const char *path, const char *like, edit_lock *created,
                          file_rights rights) {
    *created = {};
    system_path resolved;
    system_path model_path;
    if (const uint32_t failure = begin_path_call("temporary_create", path, &resolved)) {
        return failure;
    }
    if (const uint32_t failure = resolve_settled(like, &model_path)) {
        return failure;
    }
    struct stat model;
    const bool replaces = stat(model_path.text, &model) == 0;
    if (replaces && !S_ISREG(model.st_mode)) {
        return error_access_denied;
    }
    const bool takes_over = replaces && rights == file_rights::of_replaced;
    const mode_t mode =
        takes_over || rights == file_rights::of_owner ? private_file_mode : new_file_mode;
    int descriptor = -1;
    const int number = lock_in_time(
        [&](int *opened) { return create_and_lock(resolved.text, mode, opened); }, &descriptor);
    if (number != 0) {
        return error_of_errno_for(number, resolved.text);
    }
    const bool refused = takes_over ? take_over_rights(descriptor, model) != 0
                                    : rights == file_rights::of_readers &&
                                          fchmod(descriptor, readable_file_mode) != 0;
    if (refused) {
        const uint32_t error = error_of_errno(errno);
        unlink(resolved.text);
        close(descriptor);
        return error;
    }
    created->file = descriptor;
    return error_none;
}

uint32_t path_link(const char *existing, const char *name) {
    system_path old_name;
    system_path new_name;
    if (const uint32_t failure = begin_path_call("path_link", existing, &old_name)) {
        return failure;
    }
    if (const uint32_t failure = resolve_settled(name, &new_name)) {
        return failure;
    }
    if (link(old_name.text, new_name.text) == 0) {
        return error_none;
    }
    const bool no_such_thing = errno == EPERM || errno == EMLINK || errno == ENOSYS;
    if (no_such_thing) {
        return error_not_supported;
    }
    return errno == EEXIST ? static_cast<uint32_t>(error_already_exists)
                           : error_of_errno_for(errno, old_name.text);
}

uint32_t path_sync_folder(const char *path) {
    system_path resolved;
    if (const uint32_t failure = begin_path_call("path_sync_folder", path, &resolved)) {
        return failure;
    }
    char folder[PATH_MAX];
    const char *const slash = strrchr(resolved.text, '/');
    const size_t length = slash ? static_cast<size_t>(slash - resolved.text) + 1 : 0;
    if (length >= sizeof folder) {
        return error_filename_too_long;
    }
    memcpy(folder, slash ? resolved.text : ".", slash ? length : 1);
    folder[slash ? length : 1] = '\0';
    const int descriptor =
        uninterrupted([&] { return open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    if (descriptor < 0) {
        // A folder whose names may be used but not listed can't be opened, and so not be synced.
        return errno == EACCES ? error_none : error_of_errno_for(errno, resolved.text);
    }
    const bool synced = uninterrupted([&] { return fsync(descriptor); }) == 0;
    const int number = synced || errno == EINVAL ? 0 : errno;
    close(descriptor);
    return error_of_errno(number);
}

} // namespace quillfence::platform
