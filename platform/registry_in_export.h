// A registry that lies in an export: the calls of platform/registry.h over a file. Internal to the
// seam.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/file.h"
#include "platform/registry.h"

namespace quillfence::platform {

// --- what each system has of its own ---

// The export's name, null when there is none. *what receives what a complaint about it begins with.
const char *registry_export_name(const char **what);

// The export, open and, once it is read, with its bytes. An empty one has none. It is not mapped:
// bytes that somebody cuts off meanwhile are merely not read.
struct export_file {
    file_handle file;
    unsigned char *bytes;
    size_t size;
};

// Opens the export of that name, for reading or for appending a change; a missing one is made for a
// change. What is no file is refused (1017), a named pipe is not waited for.
uint32_t export_file_open(const char *name, bool to_change, export_file *opened);
// Keeps others from appending, until it is closed.
uint32_t export_file_lock(export_file *opened);
// Reads the bytes that the open export has now.
uint32_t export_file_read(export_file *opened);
// Appends behind the bytes that were read; what was written by halves is taken back.
uint32_t export_file_append(const export_file &opened, const unsigned char *bytes, size_t size);
void export_file_close(export_file *opened);

// Opens a key of the export, or of the system's own registry, with a handle for the callers.
uint32_t open_registry_key(registry_root root, const char *path, uint32_t access, bool create,
                           registry_key **opened);

// --- the calls, without the observer ---

struct exported_registry_key; // opaque

// Opens a key of the export that is named now.
uint32_t export_key_open(registry_root root, const char *path, uint32_t access, bool create,
                         exported_registry_key **opened);
void export_key_close(exported_registry_key *key); // null is accepted
uint32_t export_key_query(const exported_registry_key *key, const char *name, uint32_t *type,
                          void *data, uint32_t *size);
uint32_t export_key_enumerate(const exported_registry_key *key, uint32_t index, char *name,
                              uint32_t *size);
uint32_t export_key_count(const exported_registry_key *key, uint32_t *values,
                          uint32_t *longest_name);
uint32_t export_key_set(exported_registry_key *key, const char *name, uint32_t type,
                        const void *data, uint32_t size);
uint32_t export_key_delete(registry_root root, const char *path, uint32_t access);

} // namespace quillfence::platform
