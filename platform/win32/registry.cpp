#include "platform/registry.h"

#include <cstdlib>
#include <cstring>

#include "../registry_in_export.h"
#include "../surroundings.h"
#include "platform/observer.h"
#include "system.h"

namespace quillfence::platform {

// A key of the system, or of the export that was named when it was opened.
struct registry_key {
    HKEY handle;
    exported_registry_key *exported; // null for a key of the system
};

static HKEY handle_of(registry_root root) {
    switch (root) {
    case registry_root::classes_root:
        return HKEY_CLASSES_ROOT;
    case registry_root::current_user:
        return HKEY_CURRENT_USER;
    case registry_root::local_machine:
        return HKEY_LOCAL_MACHINE;
    case registry_root::users:
        return HKEY_USERS;
    case registry_root::current_config:
        return HKEY_CURRENT_CONFIG;
    }
    return nullptr;
}

static uint32_t number_of(LSTATUS status) {
    return static_cast<uint32_t>(status);
}

static uint32_t open_system_key(registry_root root, const char *path, uint32_t access, bool create,
                                HKEY *handle) {
    return number_of(create ? RegCreateKeyExA(handle_of(root), path ? path : "", 0, nullptr,
                                              REG_OPTION_NON_VOLATILE, access, nullptr, handle,
                                              nullptr)
                            : RegOpenKeyExA(handle_of(root), path, 0, access, handle));
}

uint32_t open_registry_key(registry_root root, const char *path, uint32_t access, bool create,
                           registry_key **opened) {
    auto *const made = static_cast<registry_key *>(calloc(1, sizeof(registry_key)));
    if (!made) {
        return error_not_enough_memory;
    }
    const uint32_t error = registry_stand_in()
                               ? export_key_open(root, path, access, create, &made->exported)
                               : open_system_key(root, path, access, create, &made->handle);
    if (error) {
        free(made);
        return error;
    }
    *opened = made;
    return error_none;
}

// Asks the observer, and refuses a key that is none.
static uint32_t begin_call(const char *call, const char *subject, const registry_key *key) {
    if (const uint32_t failure = observe_call(call, subject)) {
        return failure;
    }
    return key ? error_none : error_invalid_handle;
}

static uint32_t query_system_key(HKEY handle, const char *name, uint32_t *type, void *data,
                                 uint32_t *size) {
    DWORD found_type = 0;
    DWORD found_size = size ? *size : 0;
    const LSTATUS status =
        RegQueryValueExA(handle, name, nullptr, &found_type, static_cast<BYTE *>(data),
                         size ? &found_size : nullptr);
    if (status == ERROR_SUCCESS || status == ERROR_MORE_DATA) {
        if (type) {
            *type = found_type;
        }
        if (size) {
            *size = found_size;
        }
    }
    return number_of(status);
}

static uint32_t count_system_key(HKEY handle, uint32_t *values, uint32_t *longest_name) {
    DWORD count = 0;
    DWORD longest = 0;
    const LSTATUS status = RegQueryInfoKeyA(handle, nullptr, nullptr, nullptr, nullptr, nullptr,
                                            nullptr, &count, &longest, nullptr, nullptr, nullptr);
    if (status == ERROR_SUCCESS) {
        if (values) {
            *values = count;
        }
        if (longest_name) {
            *longest_name = longest;
        }
    }
    return number_of(status);
}

static uint32_t delete_system_key(registry_root root, const char *path, uint32_t access) {
    HKEY handle = nullptr;
    const REGSAM view = access & (registry_view_32 | registry_view_64);
    LSTATUS status =
        RegOpenKeyExA(handle_of(root), path, 0, DELETE | KEY_READ | KEY_SET_VALUE | view, &handle);
    if (status != ERROR_SUCCESS) {
        return number_of(status);
    }
    status = RegDeleteTreeA(handle, nullptr);
    RegCloseKey(handle);
    return number_of(status == ERROR_SUCCESS ? RegDeleteKeyExA(handle_of(root), path, view, 0)
                                             : status);
}

// --- the export's file ---

static HANDLE handle_of(const export_file &opened) {
    return reinterpret_cast<HANDLE>(opened.file);
}

// Reads from the file's beginning up to `size` bytes, or to its end.
static uint32_t read_bytes(export_file *opened, size_t size) {
    opened->bytes = static_cast<unsigned char *>(malloc(size));
    if (!opened->bytes) {
        return error_not_enough_memory;
    }
    while (opened->size < size) {
        const size_t left = size - opened->size;
        const DWORD piece = left < MAXLONG ? static_cast<DWORD>(left) : MAXLONG;
        DWORD got = 0;
        if (!ReadFile(handle_of(*opened), opened->bytes + opened->size, piece, &got, nullptr)) {
            return error_unless(FALSE);
        }
        if (!got) {
            return error_none;
        }
        opened->size += got;
    }
    return error_none;
}

const char *registry_export_name(const char **what) {
    *what = "the registry's export can't be read";
    return registry_stand_in();
}

// A change shares the file with readers alone, so that it needs no other lock.
uint32_t export_file_open(const char *name, bool to_change, export_file *opened) {
    const DWORD access = to_change ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
    const DWORD sharing = FILE_SHARE_READ | (to_change ? 0 : FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    const HANDLE handle =
        CreateFileA(name, access, sharing, nullptr, to_change ? OPEN_ALWAYS : OPEN_EXISTING,
                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return error_unless(FALSE);
    }
    opened->file = reinterpret_cast<file_handle>(handle);
    return GetFileType(handle) == FILE_TYPE_DISK ? error_none
                                                 : static_cast<uint32_t>(error_not_registry_file);
}

uint32_t export_file_lock(export_file *) {
    return error_none;
}

uint32_t export_file_read(export_file *opened) {
    LARGE_INTEGER size;
    if (!GetFileSizeEx(handle_of(*opened), &size)) {
        return error_unless(FALSE);
    }
    return size.QuadPart ? read_bytes(opened, static_cast<size_t>(size.QuadPart)) : error_none;
}

uint32_t export_file_append(const export_file &opened, const unsigned char *bytes, size_t size) {
    LARGE_INTEGER end;
    end.QuadPart = static_cast<LONGLONG>(opened.size);
    DWORD written = 0;
    if (!SetFilePointerEx(handle_of(opened), end, nullptr, FILE_BEGIN)) {
        return error_unless(FALSE);
    }
    uint32_t error = error_unless(
        WriteFile(handle_of(opened), bytes, static_cast<DWORD>(size), &written, nullptr));
    if (!error && written < size) {
        error = error_disk_full;
    }
    if (error && (!SetFilePointerEx(handle_of(opened), end, nullptr, FILE_BEGIN) ||
                  !SetEndOfFile(handle_of(opened)))) {
        return error_unless(FALSE);
    }
    return error;
}

void export_file_close(export_file *opened) {
    free(opened->bytes);
    if (opened->file != invalid_file) {
        CloseHandle(handle_of(*opened));
    }
    *opened = {invalid_file, nullptr, 0};
}

void registry_close(registry_key *key) {
    if (!key) {
        return;
    }
    if (key->handle) {
        RegCloseKey(key->handle);
    }
    export_key_close(key->exported);
    free(key);
}

uint32_t registry_query(registry_key *key, const char *name, uint32_t *type, void *data,
                        uint32_t *size) {
    if (const uint32_t failure = begin_call("registry_query", name, key)) {
        return failure;
    }
    return key->exported ? export_key_query(key->exported, name, type, data, size)
                         : query_system_key(key->handle, name, type, data, size);
}

uint32_t registry_enumerate(registry_key *key, uint32_t index, char *name, uint32_t *size) {
    if (const uint32_t failure = begin_call("registry_enumerate", "", key)) {
        return failure;
    }
    if (key->exported) {
        return export_key_enumerate(key->exported, index, name, size);
    }
    DWORD length = *size;
    const LSTATUS status =
        RegEnumValueA(key->handle, index, name, &length, nullptr, nullptr, nullptr, nullptr);
    *size = length;
    return number_of(status);
}

uint32_t registry_count(registry_key *key, uint32_t *values, uint32_t *longest_name) {
    if (const uint32_t failure = begin_call("registry_count", "", key)) {
        return failure;
    }
    return key->exported ? export_key_count(key->exported, values, longest_name)
                         : count_system_key(key->handle, values, longest_name);
}

uint32_t registry_set(registry_key *key, const char *name, uint32_t type, const void *data,
                      uint32_t size) {
    if (const uint32_t failure = begin_call("registry_set", name, key)) {
        return failure;
    }
    return key->exported ? export_key_set(key->exported, name, type, data, size)
                         : number_of(RegSetValueExA(key->handle, name, 0, type,
                                                    static_cast<const BYTE *>(data), size));
}

uint32_t registry_delete(registry_root root, const char *path, uint32_t access) {
    if (const uint32_t failure = observe_call("registry_delete", path)) {
        return failure;
    }
    return registry_stand_in() ? export_key_delete(root, path, access)
                               : delete_system_key(root, path, access);
}

} // namespace quillfence::platform
