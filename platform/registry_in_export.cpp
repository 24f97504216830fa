#include "registry_in_export.h"

#include <cstdlib>
#include <cstring>

#include "errno_of_error.h"
#include "platform/complaint.h"
#include "platform/error_numbers.h"
#include "platform/registry_export.h"

namespace quillfence::platform {

struct exported_registry_key {
    uint32_t access;
    char *path; // in the export
    exported_key content;
};

// Error 2 when no export is named, or it is missing.
static uint32_t open_export(bool to_change, export_file *opened) {
    *opened = {invalid_file, nullptr, 0};
    const char *what = nullptr;
    const char *const name = registry_export_name(&what);
    return name ? export_file_open(name, to_change, opened)
                : static_cast<uint32_t>(error_file_not_found);
}

// Tells the administrator what is wrong with the export that he named.
static void complain_of_export(uint32_t error) {
    const char *what = nullptr;
    const char *const name = registry_export_name(&what);
    if (name) {
        complain(event_type::error, "read_registry", "%s (%s): %s", what,
                 error == error_not_registry_file ? "not a registry export"
                                                  : strerror(errno_of_error(error)),
                 name);
    }
}

static bool is_missing(uint32_t error) {
    return error == error_file_not_found || error == error_path_not_found;
}

// What the export says about the key now. A missing export is an empty registry.
static uint32_t read_key(const char *path, exported_key *content, bool may_be_missing) {
    *content = {};
    export_file file;
    uint32_t error = open_export(false, &file);
    const bool missing = is_missing(error);
    if (!error) {
        error = export_file_read(&file);
    }
    if (!error || missing) {
        error = registry_export_read(file.bytes, file.size, path, content);
    }
    export_file_close(&file);
    if (missing ? !may_be_missing : error && error != error_not_enough_memory) {
        complain_of_export(missing ? static_cast<uint32_t>(error_file_not_found) : error);
    }
    return error;
}

// Appends a change behind the bytes of the open export, while nobody else appends.
static uint32_t append_change(export_file *file, const char *path, export_change change,
                              const exported_value *value) {
    if (const uint32_t failure = export_file_lock(file)) {
        return failure;
    }
    if (const uint32_t failure = export_file_read(file)) {
        return failure;
    }
    unsigned char *addition = nullptr;
    size_t size = 0;
    uint32_t error =
        registry_export_addition(file->bytes, file->size, path, change, value, &addition, &size);
    if (!error) {
        error = export_file_append(*file, addition, size);
    }
    free(addition);
    return error;
}

// Appends a change to the export, which is made when missing.
static uint32_t change_export(const char *path, export_change change, const exported_value *value) {
    const char *what = nullptr;
    if (!registry_export_name(&what)) {
        return error_access_denied;
    }
    export_file file;
    uint32_t error = open_export(true, &file);
    if (!error) {
        error = append_change(&file, path, change, value);
    }
    export_file_close(&file);
    return error;
}

// A key record with its path; null without memory.
static exported_registry_key *new_key(registry_root root, const char *path, uint32_t access) {
    auto *const made =
        static_cast<exported_registry_key *>(calloc(1, sizeof(exported_registry_key)));
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
static uint32_t open_or_create(exported_registry_key *key, bool create) {
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

// Whether the key may be used so.
static uint32_t check_access(const exported_registry_key *key, uint32_t needed) {
    if (!key) {
        return error_invalid_handle;
    }
    return key->access & needed ? error_none : error_access_denied;
}

// Where no export is named, no key is there but the roots.
static bool is_certainly_missing(const char *path) {
    const char *what = nullptr;
    return path && *path && *path != '\\' && !registry_export_name(&what);
}

uint32_t export_key_open(registry_root root, const char *path, uint32_t access, bool create,
                         exported_registry_key **opened) {
    *opened = nullptr;
    if (!create && is_certainly_missing(path)) {
        return error_file_not_found;
    }
    exported_registry_key *const key = new_key(root, path, access);
    if (!key) {
        return error_not_enough_memory;
    }
    if (const uint32_t failure = open_or_create(key, create)) {
        export_key_close(key);
        return failure;
    }
    *opened = key;
    return error_none;
}

void export_key_close(exported_registry_key *key) {
    if (!key) {
        return;
    }
    registry_export_release(&key->content);
    free(key->path);
    free(key);
}

uint32_t export_key_query(const exported_registry_key *key, const char *name, uint32_t *type,
                          void *data, uint32_t *size) {
    if (const uint32_t failure = check_access(key, registry_query_value)) {
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

uint32_t export_key_enumerate(const exported_registry_key *key, uint32_t index, char *name,
                              uint32_t *size) {
    if (const uint32_t failure = check_access(key, registry_query_value)) {
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

uint32_t export_key_count(const exported_registry_key *key, uint32_t *values,
                          uint32_t *longest_name) {
    if (const uint32_t failure = check_access(key, registry_query_value)) {
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

uint32_t export_key_set(exported_registry_key *key, const char *name, uint32_t type,
                        const void *data, uint32_t size) {
    if (const uint32_t failure = check_access(key, registry_set_value)) {
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

uint32_t export_key_delete(registry_root root, const char *path, uint32_t access) {
    exported_registry_key *key = nullptr;
    uint32_t error = export_key_open(root, path, access, false, &key);
    if (!error) {
        error = change_export(key->path, export_change::delete_key, nullptr);
    }
    export_key_close(key);
    return error;
}

} // namespace quillfence::platform
