// The Windows registry, as the Win32 calls see it. Functions return 0 or a Win32 error number: 2
// for a key or value that is missing, 234 for data that does not fit, 259 behind the last value, 5
// for what the access mask does not allow.
//
// A program can have an export in the registry's place on both systems (platform/surroundings.h).
// On Linux the registry is always one: the export (.reg, docs/formats/registry-export.md) that the
// environment variable QUILLFENCE_REGISTRY names. Without the variable, or when the file is
// missing, it is an empty registry; a file that is no export gives error 1017. A variable that
// names nothing readable is told (platform/complaint.h), unless a missing file is about to be made.
// Every open reads the file afresh, once, and keeps the values of its own key only; it is not
// mapped into memory, so that nobody who shortens it meanwhile does harm. What is created, set or
// deleted is appended to the file, whose other bytes stay as they are; a missing file is made. A
// file in UTF-16 that was cut off inside a unit takes no change: error 1017. Without the variable
// there is nothing to write to: error 5.
//
// Key and value names ignore the case of ASCII letters. Texts are in the system's code page on
// Windows and in UTF-8 on Linux.
#pragma once

#include <cstdint>

namespace quillfence::platform {

struct registry_key; // opaque

enum class registry_root : uint8_t {
    classes_root,
    current_user,
    local_machine,
    users,
    current_config,
};

// Access masks. Without a view flag a 64-bit program sees the 64-bit view; in the 32-bit view
// SOFTWARE\X of the local machine is SOFTWARE\Wow6432Node\X.
inline constexpr uint32_t registry_query_value = 0x1;
inline constexpr uint32_t registry_set_value = 0x2;
inline constexpr uint32_t registry_read = 0x20019;
inline constexpr uint32_t registry_write = 0x20006;
inline constexpr uint32_t registry_view_64 = 0x100;
inline constexpr uint32_t registry_view_32 = 0x200;

// Types of values. A text's size counts its NUL, when it has one.
inline constexpr uint32_t registry_text = 1;
inline constexpr uint32_t registry_expandable_text = 2;
inline constexpr uint32_t registry_binary = 3;
inline constexpr uint32_t registry_dword = 4; // little-endian
inline constexpr uint32_t registry_texts = 7; // each with a NUL, and one more at the end

// Opens a key that exists. A null or empty path is the root itself.
uint32_t registry_open(registry_root root, const char *path, uint32_t access,
                       registry_key **opened);
// The same, after making the key and those above it where they are missing.
uint32_t registry_create(registry_root root, const char *path, uint32_t access,
                         registry_key **opened);
void registry_close(registry_key *key); // null is accepted

// One value by name; null or "" is the key's default value.
//   type  receives the type, also with error 234; may be null
//   data  receives the bytes as they are stored, which need not end in a NUL; null asks for the
//         size alone
//   size  the buffer's size; receives the data's size, also with error 234. May be null with data
uint32_t registry_query(registry_key *key, const char *name, uint32_t *type, void *data,
                        uint32_t *size);
// The name of the index-th value, from 0, in no stated order.
//   size  the buffer's size with room for a NUL; receives the name's length. Error 234 leaves both
//         without meaning
uint32_t registry_enumerate(registry_key *key, uint32_t index, char *name, uint32_t *size);
// How many values the key has, and the length of the longest name. Either may be null.
uint32_t registry_count(registry_key *key, uint32_t *values, uint32_t *longest_name);

uint32_t registry_set(registry_key *key, const char *name, uint32_t type, const void *data,
                      uint32_t size);
// Deletes a key with everything below it. For tests.
uint32_t registry_delete(registry_root root, const char *path, uint32_t access);

} // namespace quillfence::platform
