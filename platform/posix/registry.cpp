// The registry of this side is an export: platform/registry_in_export.cpp.
#include "platform/registry.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "../registry_in_export.h"
#include "../surroundings.h"
#include "errors.h"
#include "letter_case.h"
#include "platform/error_numbers.h"
#include "platform/observer.h"
#include "system_path.h"
#include "uninterrupted.h"

namespace quillfence::platform {

static constexpr mode_t new_file_mode = 0666; // less the process's umask

static int descriptor_of(const export_file &opened) {
    return static_cast<int>(opened.file);
}

// Reads from the file's beginning up to `size` bytes, or to its end.
static uint32_t read_bytes(export_file *opened, size_t size) {
    opened->bytes = static_cast<unsigned char *>(malloc(size));
    if (!opened->bytes) {
        return error_not_enough_memory;
    }
    while (opened->size < size) {
        const ssize_t got = uninterrupted([&] {
            return pread(descriptor_of(*opened), opened->bytes + opened->size, size - opened->size,
                         static_cast<off_t>(opened->size));
        });
        if (got <= 0) {
            return got ? error_of_errno(errno) : static_cast<uint32_t>(error_none);
        }
        opened->size += static_cast<size_t>(got);
    }
    return error_none;
}

static uint32_t write_all(int descriptor, const unsigned char *bytes, size_t size) {
    while (size) {
        const ssize_t written = uninterrupted([&] { return write(descriptor, bytes, size); });
        if (written <= 0) {
            return written ? error_of_errno(errno) : static_cast<uint32_t>(error_disk_full);
        }
        bytes += written;
        size -= static_cast<size_t>(written);
    }
    return error_none;
}

// The key that all calls get is the export's.
static exported_registry_key *exported(registry_key *key) {
    return reinterpret_cast<exported_registry_key *>(key);
}

uint32_t open_registry_key(registry_root root, const char *path, uint32_t access, bool create,
                           registry_key **opened) {
    exported_registry_key *key = nullptr;
    const uint32_t error = export_key_open(root, path, access, create, &key);
    *opened = reinterpret_cast<registry_key *>(key);
    return error;
}

const char *registry_export_name(const char **what) {
    *what = "the registry's export can't be read";
    if (const char *const chosen = registry_stand_in()) {
        return chosen;
    }
    *what = "QUILLFENCE_REGISTRY names nothing readable";
    const char *const named = getenv("QUILLFENCE_REGISTRY");
    return named && *named ? named : nullptr;
}

uint32_t export_file_open(const char *name, bool to_change, export_file *opened) {
    system_path resolved;
    if (const uint32_t failure = resolve_path(name, &resolved)) {
        return failure;
    }
    if (to_change) {
        settle_case(&resolved);
    }
    const int flags = to_change ? O_RDWR | O_CREAT | O_APPEND : O_RDONLY;
    return call_with_path(&resolved, [&] {
        opened->file = open(resolved.text, flags | O_CLOEXEC | O_NONBLOCK, new_file_mode);
        return descriptor_of(*opened);
    });
}

uint32_t export_file_lock(export_file *opened) {
    return flock(descriptor_of(*opened), LOCK_EX | LOCK_NB) == 0 ? error_none
                                                                 : error_of_errno(errno);
}

uint32_t export_file_read(export_file *opened) {
    struct stat found;
    if (fstat(descriptor_of(*opened), &found) != 0) {
        return error_of_errno(errno);
    }
    if (!S_ISREG(found.st_mode)) {
        return error_not_registry_file;
    }
    return found.st_size ? read_bytes(opened, static_cast<size_t>(found.st_size)) : error_none;
}

uint32_t export_file_append(const export_file &opened, const unsigned char *bytes, size_t size) {
    const uint32_t error = write_all(descriptor_of(opened), bytes, size);
    if (error && ftruncate(descriptor_of(opened), static_cast<off_t>(opened.size)) != 0) {
        return error_of_errno(errno);
    }
    return error;
}

void export_file_close(export_file *opened) {
    free(opened->bytes);
    if (opened->file != invalid_file) {
        close(descriptor_of(*opened));
    }
    *opened = {invalid_file, nullptr, 0};
}

void registry_close(registry_key *key) {
    export_key_close(exported(key));
}

uint32_t registry_query(registry_key *key, const char *name, uint32_t *type, void *data,
                        uint32_t *size) {
    const uint32_t failure = observe_call("registry_query", name);
    return failure ? failure : export_key_query(exported(key), name, type, data, size);
}

uint32_t registry_enumerate(registry_key *key, uint32_t index, char *name, uint32_t *size) {
    const uint32_t failure = observe_call("registry_enumerate", "");
    return failure ? failure : export_key_enumerate(exported(key), index, name, size);
}

uint32_t registry_count(registry_key *key, uint32_t *values, uint32_t *longest_name) {
    const uint32_t failure = observe_call("registry_count", "");
    return failure ? failure : export_key_count(exported(key), values, longest_name);
}

uint32_t registry_set(registry_key *key, const char *name, uint32_t type, const void *data,
                      uint32_t size) {
    const uint32_t failure = observe_call("registry_set", name);
    return failure ? failure : export_key_set(exported(key), name, type, data, size);
}

uint32_t registry_delete(registry_root root, const char *path, uint32_t access) {
    const uint32_t failure = observe_call("registry_delete", path);
    return failure ? failure : export_key_delete(root, path, access);
}

} // namespace quillfence::platform
