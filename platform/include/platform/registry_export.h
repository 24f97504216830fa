// Registry exports (.reg), as the registry editor writes them: what a file of them says about one
// key, and the bytes that change it. Pure functions over bytes; docs/formats/registry-export.md
// tells the format.
//
// Nothing in the bytes is trusted. A line that can't be read is skipped, and so is a value that
// breaks off; everything else counts.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/registry.h"

namespace quillfence::platform {

struct exported_value {
    const char *name; // "" is the default value
    const unsigned char *data;
    uint32_t type;
    uint32_t size;
    size_t order; // where it stood among the values that were read
};

// One key of an export; begins as {}. The values are sorted by name and no two share one.
struct exported_key {
    exported_value *values;
    size_t count;
    size_t capacity;
    bool exists; // the export has the key, or one below it
};

// The path of a key in the export, a new string that the caller frees: the root's long name and the
// path, with "Wow6432Node" where the access mask asks for the 32-bit view. Null without memory.
char *registry_export_path(registry_root root, const char *path, uint32_t access);

// Reads what the export says about the key: all its sections in order, with the deletions of the
// key and of those above it. The caller releases the key, also after an error.
// Returns 0, 8 without memory, or 1017 when the bytes are no export. No bytes are an empty
// registry.
uint32_t registry_export_read(const void *bytes, size_t size, const char *path, exported_key *key);
void registry_export_release(exported_key *key);

// The value of that name, null when there is none. Null and "" are the default value.
const exported_value *registry_export_find(const exported_key *key, const char *name);

enum class export_change : uint8_t { create_key, set_value, delete_key };

// What has to be appended to the export for a change; after no bytes it begins a new file, in
// UTF-16.
//   value     for set_value alone
//   addition  receives a new block that the caller frees
// Returns 0, 8 without memory, 87 for a key path with a control character in it, 1017 when the
// bytes are no export, or one in UTF-16 that ends in half a unit: it was cut off, and no change
// could be appended without a change of its last line.
uint32_t registry_export_addition(const void *bytes, size_t size, const char *path,
                                  export_change change, const exported_value *value,
                                  unsigned char **addition, size_t *addition_size);

} // namespace quillfence::platform
