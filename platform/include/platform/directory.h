// Directory listings. Names come in the order in which NTFS lists them: sorted without regard to
// case, "." and ".." first. Functions return 0 or a Win32 error number.
#pragma once

#include <cstdint>

namespace quillfence::platform {

struct directory_listing; // opaque

struct directory_entry {
    const char *name;    // borrowed until the next call on the same listing
    uint32_t attributes; // attribute_directory or not
};

// Starts a listing of the directory (no wildcard in the path; a separator at its end is fine).
// Missing: error 3. A file: error 267. On failure *listing is null.
uint32_t directory_open(const char *path, directory_listing **listing);
// The next entry; error 18 (no more files) at the end.
uint32_t directory_next(directory_listing *listing, directory_entry *entry);
void directory_close(directory_listing *listing); // null is accepted

uint32_t directory_create(const char *path); // one level; 183 when it exists, also as a file
uint32_t directory_remove(const char *path); // an empty one; 145 when it is not, 267 for a file

} // namespace quillfence::platform
