// Editing files: one editor of a file at a time, and files that are replaced as a whole.
//
// A file that is replaced is written under another name beside its place, brought to stable
// storage, and takes the place in one step. Whoever opens the name finds the old file or the new
// one, whole, also after a kill or without power. Functions return 0 or a Win32 error number, as in
// platform/file.h.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/file.h"

namespace quillfence::platform {

// --- editors of one file ---

// The lock that all editors of a file take before they look at it, and hold to the end. It excludes
// other threads and processes, and goes with its process however that ends. On Linux it is an
// advisory lock on the file itself; on Windows it is a named mutex, which the thread that took it
// releases, and beside it the file is open without a share for writing.
struct edit_lock {
    file_handle file = invalid_file; // the file, open for reading and writing
    file_handle guard = invalid_file;
};

// Opens a file and takes its lock. Another editor is waited for, a second long; error 32 then. The
// file is the one that has the name once the lock is there, whatever it was at the beginning.
//   when  open_existing or open_always
uint32_t edit_lock_take(const char *path, disposition when, edit_lock *taken);
// What stands in the way of a replacement is closed: on Windows the file, on Linux nothing, since
// the file is the lock.
void edit_lock_close_file(edit_lock *lock);
// Closes the file and lets the next editor in. A lock that is not held is accepted.
void edit_lock_release(edit_lock *lock);

// --- replacing a file ---

inline constexpr size_t longest_replaced_path = 4096;

// Whose a replaced file is, and who may read it.
enum class file_rights : uint8_t {
    of_replaced, // owner and rights of the file that it replaces, else those of a new file
    of_owner,    // on Linux mode 0600, whatever was there; on Windows those of its folder
    of_readers,  // on Linux mode 0644, whatever was there and whatever the process's mask is; on
                 // Windows those of its folder
};

// A file on its way into another one's place.
struct replacement {
    edit_lock lock; // of the temporary file; lock.file is where the new contents are written
    char path[longest_replaced_path];      // what is replaced: what a symbolic link leads to
    char temporary[longest_replaced_path]; // the name beside it; "" when it has got its place
};

// Makes an empty file "<path><ending>" with the rights that are asked for. A temporary file that a
// killed process left behind is deleted; one that is being written is waited for, as in
// edit_lock_take. Error 5 when something other than a file is in the place, or the owner can't be
// kept.
uint32_t replacement_begin(const char *path, const char *ending, replacement *begun,
                           file_rights rights = file_rights::of_replaced);
// Brings the new contents to stable storage, puts the file in its place, and brings the folder to
// stable storage. On failure the old file stands, unless it is the folder that failed: then it is
// open which of the two a loss of power leaves.
//   held  the lock of the file's editor; may be null. It stays, its file is closed on Windows
uint32_t replacement_commit(replacement *whole, edit_lock *held);
// Ends a replacement: the temporary file goes, unless it has got its place. An error is about its
// deletion. One that has not begun is accepted.
uint32_t replacement_end(replacement *any);

// --- the steps, for replacements and for editors in place ---

// The path of the file that a symbolic link leads to, through all links; the path itself when it is
// no link. The file need not exist. 206 when it does not fit.
uint32_t path_target(const char *path, char *buffer, size_t size);
// Creates the file and takes its lock; a file of that name that nobody has locked is deleted first.
// The file that it replaces is `like`.
uint32_t temporary_create(const char *path, const char *like, edit_lock *created,
                          file_rights rights = file_rights::of_replaced);
// A second name for a file. 50 where there is no such thing.
uint32_t path_link(const char *existing, const char *name);
// Brings the names in the folder of a path to stable storage. Where a system has no call for that,
// or not for this folder, nothing is done: names reach the disk with the call that changes them.
uint32_t path_sync_folder(const char *path);

} // namespace quillfence::platform
