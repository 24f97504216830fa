#include "platform/registry.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "errors.h"
#include "letter_case.h"
#include "platform/complaint.h"
#include "platform/error_numbers.h"
#include "platform/observer.h"
#include "platform/registry_export.h"
#include "system_path.h"
#include "uninterrupted.h"

namespace quillfence::platform {

struct registry_key {
    uint32_t access;
    char *path; // in the export
    exported_key content;
};

namespace {

constexpr char export_variable[] = "QUILLFENCE_REGISTRY";
constexpr mode_t new_file_mode = 0666; // less the process's umask

// The export, open and, once it is read, with its bytes. An empty one has none. It is not mapped:
// bytes that somebody cuts off meanwhile are merely not read.
struct export_file {
    int descriptor;
    unsigned char *bytes;
    size_t size;
};

// Reads from the file's beginning up to `size` bytes, or to its end.
uint32_t read_bytes(export_file *file, size_t size) {
    file->bytes = static_cast<unsigned char *>(malloc(size));
    if (!file->bytes) {
        return error_not_enough_memory;
    }
    while (file->size < size) {
        const ssize_t got = uninterrupted([&] {
            return pread(file->descriptor, file->bytes + file->size, size - file->size,
                         static_cast<off_t>(file->size));
        });
        if (got <= 0) {
            return got ? error_of_errno(errno) : static_cast<uint32_t>(error_none);
        }
        file->size += static_cast<size_t>(got);
    }
    return error_none;
}

// Reads the bytes that the open export has now.
uint32_t read_export(export_file *file) {
    struct stat found;
    if (fstat(file->descriptor, &found) != 0) {
        return error_of_errno(errno);
    }
    if (!S_ISREG(found.st_mode)) {
        return error_not_registry_file;
    }
    return found.st_size ? read_bytes(file, static_cast<size_t>(found.st_size)) : error_none;
}

void close_export(export_file *file) {
    free(file->bytes);
    if (file->descriptor >= 0) {
        close(file->descriptor);
    }
    *file = {-1, nullptr, 0};
}

// Opens the export with open()'s flags; a named pipe is not waited for. Error 2 when no export is
// named, or it is missing.
uint32_t open_export(int flags, export_file *file) {
    *file = {-1, nullptr, 0};
    const char *const name = getenv(export_variable);
    if (!name || !*name) {
        return error_file_not_found;
    }
    system_path resolved;
    if (const uint32_t failure = resolve_path(name, &resolved)) {
        return failure;
    }
    if (flags & O_CREAT) {
        settle_case(&resolved);
    }
    return call_with_path(&resolved, [&] {
        file->descriptor = open(resolved.text, flags | O_CLOEXEC | O_NONBLOCK, new_file_mode);
        return file->descriptor;
    });
}

// Tells the administrator what is wrong with the export that he named.
void complain_of_export(uint32_t error) {
    const char *const name = getenv(export_variable);
    if (!name || !*name) {
        return;
    }
    const char *const why = error == error_not_registry_file ? "not a registry export"
                                                             : strerror(errno_of_error(error));
    complain(event_type::error, "read_registry", "%s names nothing readable (%s): %s",
             export_variable, why, name);
}

bool is_missing(uint32_t error) {
    return error == error_file_not_found || error == error_path_not_found;
}

// What the export says about the key now. A missing export is an empty registry.
uint32_t read_key(const char *path, exported_key *content, bool may_be_missing) {
    *content = {};
    export_file file;
    uint32_t error = open_export(O_RDONLY, &file);
    const bool missing = is_missing(error);
    if (!error) {
        error = read_export(&file);
    }
    if (!error || missing) {
        error = registry_export_read(file.bytes, file.size, path, content);
    }
    close_export(&file);
    if (missing ? !may_be_missing : error && error != error_not_enough_memory) {
        complain_of_export(missing ? static_cast<uint32_t>(error_file_not_found) : error);
    }
    return error;
}

uint32_t write_all(int descriptor, const unsigned char *bytes, size_t size) {
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

// Appends to the open export; what was written by halves is taken back.
uint32_t append_to(const export_file &file, const unsigned char *bytes, size_t size) {
    const uint32_t error = write_all(file.descriptor, bytes, size);
    if (error && ftruncate(file.descriptor, static_cast<off_t>(file.size)) != 0) {
        return error_of_errno(errno);
    }
    return error;
}

// Appends a change behind the bytes of the open export, while nobody else appends.
uint32_t append_change(export_file *file, const char *path, export_change change,
                       const exported_value *value) {
    if (flock(file->descriptor, LOCK_EX | LOCK_NB) != 0) {
        return error_of_errno(errno);
    }
    if (const uint32_t failure = read_export(file)) {
        return failure;
    }
    unsigned char *addition = nullptr;
    size_t size = 0;
    uint32_t error =
        registry_export_addition(file->bytes, file->size, path, change, value, &addition, &size);
    if (!error) {
        error = append_to(*file, addition, size);
    }
    free(addition);
    return error;
}

// Appends a change to the export, which is made when missing.
uint32_t change_export(const char *path, export_change change, const exported_value *value) {
    export_file file;
    uint32_t error = open_export(O_RDWR | O_CREAT | O_APPEND, &file);
    if (error) {
        const char *const name = getenv(export_variable);
        return name && *name ? error : static_cast<uint32_t>(error_access_denied);
    }
    error = append_change(&file, path, change, value);
    close_export(&file);
    return error;
}

// A key record with its path; null without memory.
registry_key *new_key(registry_root root, const char *path, uint32_t access) {
    auto *const made = static_cast<registry_key *>(calloc(1, sizeof(registry_key)));
    if (!made) {
        return nullptr;
    }
    made->access = access;
    made->path = registry_export_path(root, path, access);
    if (!made->path) {
        free(made);
        return nullptr;
    }
    return made;
}

// Opens the key; one that is missing is made where that is wanted.
uint32_t open_or_create(registry_key *key, bool create) {
    if (const uint32_t failure = read_key(key->path, &key->content, create)) {
        return failure;
    }
    if (key->content.exists) {
        return error_none;
    }
    if (!create) {
        return error_file_not_found;
    }
    const uint32_t failure = change_export(key->path, export_change::create_key, nullptr);
    key->content.exists = !failure;
    return failure;
}

uint32_t open_key(registry_root root, const char *path, uint32_t access, bool create,
                  registry_key **opened) {
    registry_key *const key = new_key(root, path, access);
    if (!key) {
        return error_not_enough_memory;
    }
    if (const uint32_t failure = open_or_create(key, create)) {
        registry_close(key);
        return failure;
    }
    *opened = key;
    return error_none;
}

// Asks the observer, and whether the key may be used so.
uint32_t begin_call(const char *call, const char *subject, const registry_key *key,
                    uint32_t needed) {
    if (const uint32_t failure = observe_call(call, subject)) {
        return failure;
    }
    if (!key) {
        return error_invalid_handle;
    }
    return key->access & needed ? error_none : error_access_denied;
}

} // namespace

uint32_t registry_open(registry_root root, const char *path, uint32_t access,
                       registry_key **opened) {
    *opened = nullptr;
    const uint32_t failure = observe_call("registry_open", path);
    return failure ? failure : open_key(root, path, access, false, opened);
}

uint32_t registry_create(registry_root root, const char *path, uint32_t access,
                         registry_key **opened) {
    *opened = nullptr;
    const uint32_t failure = observe_call("registry_create", path);
    return failure ? failure : open_key(root, path, access, true, opened);
}

void registry_close(registry_key *key) {
    if (!key) {
        return;
    }
    registry_export_release(&key->content);
    free(key->path);
    free(key);
}

uint32_t registry_query(registry_key *key, const char *name, uint32_t *type, void *data,
                        uint32_t *size) {
    if (const uint32_t failure = begin_call("registry_query", name, key, registry_query_value)) {
        return failure;
    }
    const exported_value *const value = registry_export_find(&key->content, name);
    if (!value) {
        return error_file_not_found;
    }
    if (data && !size) {
        return error_invalid_parameter;
    }
    if (type) {
        *type = value->type;
    }
    const uint32_t room = size ? *size : 0;
    if (size) {
        *size = value->size;
    }
    if (!data) {
        return error_none;
    }
    if (room < value->size) {
        return error_more_data;
    }
    memcpy(data, value->data, value->size);
    return error_none;
}

uint32_t registry_enumerate(registry_key *key, uint32_t index, char *name, uint32_t *size) {
    if (const uint32_t failure = begin_call("registry_enumerate", "", key, registry_query_value)) {
        return failure;
    }
    if (index >= key->content.count) {
        return error_no_more_items;
    }
    const char *const found = key->content.values[index].name;
    const size_t length = strlen(found);
    if (length >= *size) {
        return error_more_data;
    }
    memcpy(name, found, length + 1);
    *size = static_cast<uint32_t>(length);
    return error_none;
}

uint32_t registry_count(registry_key *key, uint32_t *values, uint32_t *longest_name) {
    if (const uint32_t failure = begin_call("registry_count", "", key, registry_query_value)) {
        return failure;
    }
    size_t longest = 0;
    for (size_t i = 0; i < key->content.count; ++i) {
        const size_t length = strlen(key->content.values[i].name);
        longest = length > longest ? length : longest;
    }
    if (values) {
        *values = static_cast<uint32_t>(key->content.count);
    }
    if (longest_name) {
        *longest_name = static_cast<uint32_t>(longest);
    }
    return error_none;
}

uint32_t registry_set(registry_key *key, const char *name, uint32_t type, const void *data,
                      uint32_t size) {
    if (const uint32_t failure = begin_call("registry_set", name, key, registry_set_value)) {
        return failure;
    }
    const exported_value value = {.name = name ? name : "",
                                  .data = static_cast<const unsigned char *>(data),
                                  .type = type,
                                  .size = size,
                                  .order = 0};
    if (const uint32_t failure = change_export(key->path, export_change::set_value, &value)) {
        return failure;
    }
    registry_export_release(&key->content);
    return read_key(key->path, &key->content, false);
}

uint32_t registry_delete(registry_root root, const char *path, uint32_t access) {
    registry_key *key = nullptr;
    uint32_t error = observe_call("registry_delete", path);
    if (!error) {
        error = open_key(root, path, access, false, &key);
    }
    if (!error) {
        error = change_export(key->path, export_change::delete_key, nullptr);
    }
    registry_close(key);
    return error;
}

} // namespace quillfence::platform
