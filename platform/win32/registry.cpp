#include "platform/registry.h"

#include "platform/observer.h"
#include "system.h"

namespace quillfence::platform {

namespace {

HKEY handle_of(registry_root root) {
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

HKEY handle_of(registry_key *key) {
    return reinterpret_cast<HKEY>(key);
}

uint32_t number_of(LSTATUS status) {
    return static_cast<uint32_t>(status);
}

// The call's outcome with the opened key.
uint32_t hand_over(LSTATUS status, HKEY handle, registry_key **opened) {
    if (status == ERROR_SUCCESS) {
        *opened = reinterpret_cast<registry_key *>(handle);
    }
    return number_of(status);
}

} // namespace

uint32_t registry_open(registry_root root, const char *path, uint32_t access,
                       registry_key **opened) {
    *opened = nullptr;
    if (const uint32_t failure = observe_call("registry_open", path)) {
        return failure;
    }
    HKEY handle = nullptr;
    const LSTATUS status = RegOpenKeyExA(handle_of(root), path, 0, access, &handle);
    return hand_over(status, handle, opened);
}

uint32_t registry_create(registry_root root, const char *path, uint32_t access,
                         registry_key **opened) {
    *opened = nullptr;
    if (const uint32_t failure = observe_call("registry_create", path)) {
        return failure;
    }
    HKEY handle = nullptr;
    const LSTATUS status =
        RegCreateKeyExA(handle_of(root), path ? path : "", 0, nullptr, REG_OPTION_NON_VOLATILE,
                        access, nullptr, &handle, nullptr);
    return hand_over(status, handle, opened);
}

void registry_close(registry_key *key) {
    if (key) {
        RegCloseKey(handle_of(key));
    }
}

uint32_t registry_query(registry_key *key, const char *name, uint32_t *type, void *data,
                        uint32_t *size) {
    if (const uint32_t failure = observe_call("registry_query", name)) {
        return failure;
    }
    DWORD found_type = 0;
    DWORD found_size = size ? *size : 0;
    const LSTATUS status =
        RegQueryValueExA(handle_of(key), name, nullptr, &found_type, static_cast<BYTE *>(data),
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

uint32_t registry_enumerate(registry_key *key, uint32_t index, char *name, uint32_t *size) {
    if (const uint32_t failure = observe_call("registry_enumerate", "")) {
        return failure;
    }
    DWORD length = *size;
    const LSTATUS status =
        RegEnumValueA(handle_of(key), index, name, &length, nullptr, nullptr, nullptr, nullptr);
    *size = length;
    return number_of(status);
}

uint32_t registry_count(registry_key *key, uint32_t *values, uint32_t *longest_name) {
    if (const uint32_t failure = observe_call("registry_count", "")) {
        return failure;
    }
    DWORD count = 0;
    DWORD longest = 0;
    const LSTATUS status =
        RegQueryInfoKeyA(handle_of(key), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                         &count, &longest, nullptr, nullptr, nullptr);
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

uint32_t registry_set(registry_key *key, const char *name, uint32_t type, const void *data,
                      uint32_t size) {
    const uint32_t failure = observe_call("registry_set", name);
    return failure ? failure
                   : number_of(RegSetValueExA(handle_of(key), name, 0, type,
                                              static_cast<const BYTE *>(data), size));
}

uint32_t registry_delete(registry_root root, const char *path, uint32_t access) {
    if (const uint32_t failure = observe_call("registry_delete", path)) {
        return failure;
    }
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

} // namespace quillfence::platform
