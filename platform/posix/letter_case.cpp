#include "letter_case.h"

#include <cstddef>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "../surroundings.h"
#include "platform/complaint.h"

namespace quillfence::platform {

static constexpr int folder_flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

namespace {

// One name of a path, in its buffer.
struct path_name {
    char *text;
    size_t length;
};

} // namespace

static char lower_letter(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

static bool same_but_case(const char *entry, const path_name &name) {
    for (size_t i = 0; i < name.length; ++i) {
        if (lower_letter(entry[i]) !=
            lower_letter(name.text[i])) { // differs at the entry's end, too
            return false;
        }
    }
    return entry[name.length] == '\0';
}

static void complain_of_drive(char drive, const char *folder, int number) {
    if (drive == 'C' && drive_root()) {
        complain(event_type::error, "find_drive", "drive c: can't be read (%s): %s",
                 strerror(number), folder);
        return;
    }
    complain(event_type::error, "find_drive",
             "QUILLFENCE_DRIVE_%c names no readable folder (%s): %s", drive, strerror(number),
             folder);
}

// Opens the folder of the first `length` characters of the path.
static int open_folder(system_path *path, size_t length) {
    const char behind = path->buffer[length];
    path->buffer[length] = '\0';
    const int folder = uninterrupted([&] { return open(path->buffer, folder_flags); });
    const int number = errno;
    if (folder < 0 && length == path->drive_names && path->drive) {
        complain_of_drive(path->drive, path->buffer, number);
    }
    path->buffer[length] = behind;
    errno = number;
    return folder;
}

// The last name before `end`, which is behind the first name's beginning.
static path_name name_before(system_path *path, size_t end) {
    while (end > path->drive_names && path->buffer[end - 1] == '/') {
        --end;
    }
    size_t begin = end;
    while (begin > path->drive_names && path->buffer[begin - 1] != '/') {
        --begin;
    }
    return {path->buffer + begin, end - begin};
}

// The name behind another one; of length 0 when that was the last.
static path_name name_after(const path_name &name) {
    char *const begin = name.text + name.length + strspn(name.text + name.length, "/");
    return {begin, strcspn(begin, "/")};
}

// Opens the folder that holds the path's last name; where that is missing the one above, and so on.
// *name receives the name that it should hold. -1 when none can be opened.
static int open_nearest_folder(system_path *path, path_name *name) {
    size_t end = strlen(path->buffer);
    for (;;) {
        *name = name_before(path, end);
        end = static_cast<size_t>(name->text - path->buffer);
        if (name->length == 0) {
            return -1; // the drive itself
        }
        const int folder = open_folder(path, end);
        if (folder >= 0 || errno != ENOENT || end == path->drive_names) {
            return folder;
        }
    }
}

namespace {

// What a folder holds in the place of a name.
struct found_name {
    bool exact;
    int others;               // names that differ in case alone
    char first[NAME_MAX + 1]; // of these, in byte order
};

} // namespace

static void note_entry(const char *entry, const path_name &name, found_name *found) {
    if (!same_but_case(entry, name)) {
        return;
    }
    if (memcmp(entry, name.text, name.length) == 0) {
        found->exact = true;
    } else if (found->others++ == 0 || strcmp(entry, found->first) < 0) {
        memcpy(found->first, entry, name.length + 1);
    }
}

// Reads the folder to its end, or to the exact name.
static void list_folder(int folder, const path_name &name, found_name *found) {
    alignas(dirent64) char block[32768];
    for (;;) {
        const ssize_t size = uninterrupted([&] { return getdents64(folder, block, sizeof block); });
        if (size <= 0 || found->exact) {
            return;
        }
        for (ssize_t at = 0; at < size;) {
            const auto *const entry = reinterpret_cast<const dirent64 *>(block + at);
            note_entry(entry->d_name, name, found);
            at += entry->d_reclen;
        }
    }
}

// Looks a name up in its folder, and writes it as it stands there. Whether it is there; *changed
// becomes true when it was written differently.
static bool correct_name(const system_path &path, int folder, const path_name &name,
                         bool *changed) {
    found_name found = {};
    if (name.length <= NAME_MAX) {
        list_folder(folder, name, &found);
    }
    if (found.exact || found.others == 0) {
        return found.exact;
    }
    memcpy(name.text, found.first, name.length);
    *changed = true;
    if (found.others > 1) {
        complain(event_type::warning, "find_other_case",
                 "several names differ in letter case alone: taking %.*s",
                 static_cast<int>(name.text + name.length - path.buffer), path.buffer);
    }
    return true;
}

uint32_t find_other_case(system_path *path) {
    path_name name;
    bool changed = false;
    int folder = open_nearest_folder(path, &name);
    while (folder >= 0) {
        const bool found = correct_name(*path, folder, name, &changed);
        const path_name next = name_after(name);
        close(folder);
        if (next.length == 0) {
            return found && changed ? error_none : error_file_not_found;
        }
        folder = found ? open_folder(path, static_cast<size_t>(next.text - path->buffer)) : -1;
        name = next;
    }
    return error_path_not_found;
}

void settle_case(system_path *path) {
    struct stat found;
    if (path->drive_names && lstat(path->text, &found) != 0 && errno == ENOENT) {
        find_other_case(path);
    }
}

void check_drive_folder(const system_path &path) {
    system_path folder = path;
    folder.text = folder.buffer;
    const int opened = open_folder(&folder, folder.drive_names);
    if (opened >= 0) {
        close(opened);
    }
}

} // namespace quillfence::platform
