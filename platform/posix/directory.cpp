#include "platform/directory.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "errors.h"
#include "letter_case.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "platform/observer.h"
#include "system_path.h"

namespace quillfence::platform {

namespace {

struct listed_name {
    uint32_t attributes;
    char name[]; // NUL-terminated
};

} // namespace

struct directory_listing {
    listed_name **names;
    size_t count;
    size_t capacity;
    size_t next;
};

static unsigned upper_byte(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 'a' && byte <= 'z' ? byte - 'a' + 'A' : byte;
}

// "." and ".." before all other names.
static int rank_of(const char *name) {
    return strcmp(name, ".") == 0 ? 0 : strcmp(name, "..") == 0 ? 1 : 2;
}

// The order of NTFS: by the upper-cased names; names that differ in case alone, which only a
// Linux folder can hold, by their bytes.
static int compare_names(const char *one, const char *other) {
    if (const int by_rank = rank_of(one) - rank_of(other)) {
        return by_rank;
    }
    size_t i = 0;
    while (one[i] && upper_byte(one[i]) == upper_byte(other[i])) {
        ++i;
    }
    const int by_letter =
        static_cast<int>(upper_byte(one[i])) - static_cast<int>(upper_byte(other[i]));
    return by_letter ? by_letter : strcmp(one, other);
}

static int compare_listed(const void *one, const void *other) {
    return compare_names((*static_cast<listed_name *const *>(one))->name,
                         (*static_cast<listed_name *const *>(other))->name);
}

// Some file systems do not say what an entry is, and a link is what it points to.
static uint32_t attributes_of(DIR *directory, const dirent *entry) {
    bool is_directory = entry->d_type == DT_DIR;
    if (entry->d_type == DT_UNKNOWN || entry->d_type == DT_LNK) {
        struct stat found;
        is_directory =
            fstatat(dirfd(directory), entry->d_name, &found, 0) == 0 && S_ISDIR(found.st_mode);
    }
    return is_directory ? attribute_directory : attribute_normal;
}

static bool make_room(directory_listing *listing) {
    if (listing->count < listing->capacity) {
        return true;
    }
    const size_t capacity = listing->capacity ? 2 * listing->capacity : 32;
    void *const grown = realloc(listing->names, capacity * sizeof *listing->names);
    if (!grown) {
        return false;
    }
    listing->names = static_cast<listed_name **>(grown);
    listing->capacity = capacity;
    return true;
}

static bool add_entry(directory_listing *listing, DIR *directory, const dirent *entry) {
    const size_t size = strlen(entry->d_name) + 1;
    if (!make_room(listing)) {
        return false;
    }
    auto *const added = static_cast<listed_name *>(malloc(sizeof(listed_name) + size));
    if (!added) {
        return false;
    }
    added->attributes = attributes_of(directory, entry);
    memcpy(added->name, entry->d_name, size);
    listing->names[listing->count++] = added;
    return true;
}

static uint32_t read_entries(DIR *directory, directory_listing *listing) {
    for (;;) {
        errno = 0;
        const dirent *const entry = readdir(directory);
        if (!entry) {
            return error_of_errno(errno);
        }
        if (!add_entry(listing, directory, entry)) {
            return error_not_enough_memory;
        }
    }
}

static uint32_t error_of_open(int number) {
    switch (number) {
    case ENOENT:
        return error_path_not_found;
    case ENOTDIR:
        return error_directory;
    default:
        return error_of_errno(number);
    }
}

static uint32_t begin_call(const char *call, const char *path, system_path *resolved) {
    const uint32_t failure = observe_call(call, path);
    return failure ? failure : resolve_path(path, resolved);
}

uint32_t directory_open(const char *path, directory_listing **listing) {
    *listing = nullptr;
    system_path resolved;
    if (const uint32_t failure = begin_call("directory_open", path, &resolved)) {
        return failure;
    }
    auto *const made = static_cast<directory_listing *>(calloc(1, sizeof(directory_listing)));
    if (!made) {
        return error_not_enough_memory;
    }
    DIR *directory = nullptr;
    uint32_t error = call_with_path(&resolved, [&] {
        directory = opendir(resolved.text);
        return directory ? 0 : -1;
    });
    if (directory) {
        error = read_entries(directory, made);
        closedir(directory);
    } else {
        error = error_of_open(errno);
    }
    if (error) {
        directory_close(made);
        return error;
    }
    if (made->count > 1) {
        qsort(made->names, made->count, sizeof *made->names, compare_listed);
    }
    *listing = made;
    return error_none;
}

uint32_t directory_next(directory_listing *listing, directory_entry *entry) {
    if (const uint32_t failure = observe_call("directory_next", "")) {
        return failure;
    }
    if (listing->next >= listing->count) {
        return error_no_more_files;
    }
    const listed_name *const found = listing->names[listing->next++];
    *entry = {found->name, found->attributes};
    return error_none;
}

void directory_close(directory_listing *listing) {
    if (!listing) {
        return;
    }
    for (size_t i = 0; i < listing->count; ++i) {
        free(listing->names[i]);
    }
    free(listing->names);
    free(listing);
}

uint32_t directory_create(const char *path) {
    system_path resolved;
    if (const uint32_t failure = begin_call("directory_create", path, &resolved)) {
        return failure;
    }
    settle_case(&resolved);
    if (mkdir(resolved.text, 0777) == 0) {
        return error_none;
    }
    switch (errno) {
    case EEXIST:
        return error_already_exists;
    case ENOENT:
        return error_path_not_found;
    default:
        return error_of_errno(errno);
    }
}

uint32_t directory_remove(const char *path) {
    system_path resolved;
    if (const uint32_t failure = begin_call("directory_remove", path, &resolved)) {
        return failure;
    }
    const uint32_t error = call_with_path(&resolved, [&] { return rmdir(resolved.text); });
    struct stat found;
    if (error == error_path_not_found && errno == ENOTDIR && stat(resolved.text, &found) == 0) {
        return error_directory; // a file
    }
    return error;
}

} // namespace quillfence::platform
