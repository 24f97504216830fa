#include "given_registry.h"

#include <cstring>

#include "platform/error_numbers.h"
#include "vc_text.h"

namespace quillfence {

using platform::registry_key;

static bool is_key(const registry_row &row, const char *key) {
    return _stricmp(row.key, key) == 0;
}

// Whether the row tells that its key is there: about a value, it is, whether or not that was found.
static bool tells_of_key(const registry_row &row) {
    return row.value || row.found;
}

static const registry_row *rows_of(registry_key *key) {
    return reinterpret_cast<const registry_row *>(key);
}

uint32_t given_key_open(const registry_row *rows, platform::registry_root root, const char *key,
                        registry_key **opened) {
    *opened = nullptr;
    if (root != platform::registry_root::local_machine) {
        return platform::error_file_not_found;
    }
    for (const registry_row *row = rows; row->key; ++row) {
        if (is_key(*row, key) && tells_of_key(*row)) {
            *opened = reinterpret_cast<registry_key *>(const_cast<registry_row *>(row));
            return platform::error_none;
        }
    }
    return platform::error_file_not_found;
}

// The key's values that were found, from a row on; null behind the last.
static const registry_row *next_value(const registry_row *row, const char *key) {
    while (row->key && !(is_key(*row, key) && row->value && row->found)) {
        ++row;
    }
    return row->key ? row : nullptr;
}

static const registry_row *find_value(registry_key *key, const char *name) {
    const char *const wanted = name ? name : "";
    const registry_row *const first = rows_of(key);
    const registry_row *row = next_value(first, first->key);
    while (row && _stricmp(row->value, wanted) != 0) {
        row = next_value(row + 1, first->key);
    }
    return row;
}

uint32_t given_key_query(registry_key *key, const char *value, uint32_t *type, void *data,
                         uint32_t *size) {
    const registry_row *const row = find_value(key, value);
    if (!row) {
        return platform::error_file_not_found;
    }
    if (type) {
        *type = row->type;
    }
    const uint32_t room = size ? *size : 0;
    if (size) {
        *size = row->size;
    }
    if (data && row->size > room) {
        return platform::error_more_data;
    }
    if (data && row->size) {
        memcpy(data, row->data, row->size);
    }
    return platform::error_none;
}

uint32_t given_key_enumerate(registry_key *key, uint32_t index, char *name, uint32_t *size) {
    const registry_row *const first = rows_of(key);
    const registry_row *row = next_value(first, first->key);
    for (; row && index; --index) {
        row = next_value(row + 1, first->key);
    }
    if (!row) {
        return platform::error_no_more_items;
    }
    const size_t length = strlen(row->value);
    if (length >= *size) {
        return platform::error_more_data;
    }
    memcpy(name, row->value, length + 1);
    *size = static_cast<uint32_t>(length);
    return platform::error_none;
}

} // namespace quillfence
