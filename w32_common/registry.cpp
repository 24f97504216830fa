#include "registry.h"

#include <cstdlib>
#include <cstring>

#include "byte_cursor.h"
#include "evidence.h"
#include "given_registry.h"
#include "platform/error_numbers.h"
#include "vc_log.h"
#include "vc_text.h"

namespace quillfence {

static constexpr char module_name[] = "w32_common/registry";

static const char *shown(const char *value) {
    return value ? value : "";
}

// --- this system's registry, or the rows of the calling thread's context ---

static uint32_t open_key(vc_regroot root, const char *key, uint32_t access, vc_regkey **opened) {
    const server_rows *const given = given_server();
    return given ? given_key_open(given->registry, root, key, opened)
                 : platform::registry_open(root, key, access, opened);
}

static uint32_t query_key(vc_regkey *key, const char *value, uint32_t *type, void *data,
                          uint32_t *size) {
    return given_server() ? given_key_query(key, value, type, data, size)
                          : platform::registry_query(key, value, type, data, size);
}

static uint32_t enumerate_key(vc_regkey *key, uint32_t index, char *name, uint32_t *size) {
    return given_server() ? given_key_enumerate(key, index, name, size)
                          : platform::registry_enumerate(key, index, name, size);
}

// Opens a key to read one of its values, for the operation of that name.
static vc_regkey *open_for_read(const char *function, vc_regroot root, const char *key,
                                const char *value) {
    vc_regkey *opened = nullptr;
    if (open_key(root, key, platform::registry_read, &opened)) {
        QF_ERROR_AS(function, "error opening registry key for read %s %s", key, shown(value));
    }
    return opened;
}

// Reads a value's data of at most size bytes. A value that has more is told from one that can't be
// read by its size.
static uint32_t query(vc_regkey *key, const char *value, uint32_t *type, void *data,
                      uint32_t *size) {
    const uint32_t error = query_key(key, value, type, data, size);
    return error == platform::error_more_data ? static_cast<uint32_t>(platform::error_none) : error;
}

// The text of at most limit characters in a buffer of limit + 1 bytes, or null.
static char *read_text(vc_regkey *opened, const char *key, const char *value, uint32_t limit) {
    static constexpr char function[] = "vc_regkey_get_ex";
    heap_string text(static_cast<char *>(malloc(size_t{limit} + 1)));
    if (!text) {
        QF_ERROR_AS(function, "Out of memory error");
        tell_no_memory(function);
        return nullptr;
    }
    uint32_t type = 0;
    uint32_t size = limit + 1;
    if (query(opened, value, &type, text.get(), &size)) {
        QF_ERROR_AS(function, "error: unable to query key %s %s", key, shown(value));
        return nullptr;
    }
    if (type != platform::registry_text) {
        QF_ERROR_AS(function, "error: expected key %s value %s to be type REG_SZ", key,
                    shown(value));
        return nullptr;
    }
    const bool whole = size <= limit || (size == limit + 1 && !text.get()[limit]);
    if (!whole) {
        QF_ERROR_AS(function, "error: unable to query key %s %s", key, shown(value));
        return nullptr;
    }
    text.get()[size <= limit ? size : limit] = '\0'; // the data need not end in a NUL
    return text.release();
}

int vc_regkey_get_ex(vc_regroot root, const char *key, const char *value, uint32_t limit,
                     char **text) {
    if (is_empty(key) || !text || limit > INT32_MAX) {
        QF_EINVAL();
        return 0;
    }
    vc_regkey *const opened = open_for_read(__func__, root, key, value);
    if (!opened) {
        return 0;
    }
    char *const read = read_text(opened, key, value, limit);
    vc_regkey_close(opened);
    if (read) {
        *text = read;
    }
    return read != nullptr;
}

int vc_regkey_exists_ex(vc_regroot root, const char *key, const char *value) {
    if (is_empty(key)) {
        QF_EINVAL();
        return 0;
    }
    vc_regkey *const opened = vc_regkey_open_ex(root, key, platform::registry_read);
    const int exists = opened && vc_regkey_has_value(opened, value);
    vc_regkey_close(opened);
    return exists;
}

int vc_regkey_get_type_ex(vc_regroot root, const char *key, const char *value, uint32_t *type) {
    if (is_empty(key) || !type) {
        QF_EINVAL();
        return 0;
    }
    vc_regkey *const opened = open_for_read(__func__, root, key, value);
    if (!opened) {
        return 0;
    }
    const uint32_t error = query(opened, value, type, nullptr, nullptr);
    vc_regkey_close(opened);
    if (error) {
        QF_ERROR("error: unable to query key %s %s", key, shown(value));
        return 0;
    }
    return 1;
}

// A key to write to, which is made when missing; null with an ERROR line.
static vc_regkey *create_key(const char *function, vc_regroot root, const char *key) {
    vc_regkey *created = nullptr;
    if (platform::registry_create(root, key, platform::registry_write, &created)) {
        QF_ERROR_AS(function, "Error creating subkey %s", key);
    }
    return created;
}

int vc_regkey_create_ex(vc_regroot root, const char *key) {
    if (is_empty(key)) {
        QF_EINVAL();
        return 0;
    }
    vc_regkey *const created = create_key(__func__, root, key);
    vc_regkey_close(created);
    return created != nullptr;
}

int vc_regkey_set_ex(vc_regroot root, const char *key, const char *value, uint32_t type,
                     const void *data, uint32_t size) {
    if (is_empty(key) || (!data && size)) {
        QF_EINVAL();
        return 0;
    }
    vc_regkey *const created = create_key(__func__, root, key);
    if (!created) {
        return 0;
    }
    const uint32_t error = platform::registry_set(created, value, type, data, size);
    vc_regkey_close(created);
    if (error) {
        QF_ERROR("error: unable to set key %s %s", key, shown(value));
        return 0;
    }
    return 1;
}

// --- an open key ---

vc_regkey *vc_regkey_open_ex(vc_regroot root, const char *key, uint32_t access) {
    if (is_empty(key)) {
        QF_EINVAL();
        return nullptr;
    }
    vc_regkey *opened = nullptr;
    const uint32_t error = open_key(root, key, access, &opened);
    if (error == platform::error_not_enough_memory) {
        QF_ENOMEM();
    }
    return error ? nullptr : opened;
}

void vc_regkey_close(vc_regkey *key) {
    if (!given_server()) {
        platform::registry_close(key);
    }
}

int vc_regkey_has_value(vc_regkey *key, const char *value) {
    if (!key) {
        QF_EINVAL();
        return 0;
    }
    return query(key, value, nullptr, nullptr, nullptr) == 0;
}

int vc_regkey_get_dword(vc_regkey *key, const char *value, uint32_t *number) {
    if (!key || !number) {
        QF_EINVAL();
        return 0;
    }
    unsigned char data[4] = {};
    uint32_t type = 0;
    uint32_t size = sizeof data;
    if (query(key, value, &type, data, &size) || type != platform::registry_dword ||
        size != sizeof data) {
        return 0;
    }
    *number = load_le32(data);
    return 1;
}

int vc_regkey_value_name(vc_regkey *key, uint32_t index, char *name, size_t size) {
    if (!key || !name || !size) {
        QF_EINVAL();
        return 0;
    }
    auto length = static_cast<uint32_t>(size < INT32_MAX ? size : INT32_MAX);
    switch (enumerate_key(key, index, name, &length)) {
    case platform::error_none:
        return 1;
    case platform::error_more_data:
        return -1;
    default:
        return 0;
    }
}

// --- for whoever asks ---

// The bytes of a value of that size, null when they can't be had.
static void *copy_of_value(vc_regkey *key, const char *value, uint32_t *size) {
    void *const bytes = malloc(*size ? *size : 1);
    if (!bytes) {
        tell_no_memory("vc_regkey_tell");
        return nullptr;
    }
    if (query_key(key, value, nullptr, bytes, size)) { // it has grown meanwhile
        *size = 0;
    }
    return bytes;
}

void vc_regkey_tell(vc_regkey *key, const char *path, const char *value) {
    if (!asked()) {
        return;
    }
    registry_look look = {.key = path, .value = key ? value : nullptr};
    look.found = key && query(key, value, &look.type, nullptr, &look.size) == 0;
    const heap_ptr<void> bytes(look.found ? copy_of_value(key, value, &look.size) : nullptr);
    look.data = bytes.get();
    tell(&evidence_sink::looked_at_registry, look);
}

} // namespace quillfence
