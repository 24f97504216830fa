// The registry: reading, testing, making and setting single values, and walking through a key.
//
// Results are 1 for success and 0 for failure, unless a comment says otherwise. A null or empty key
// path, or a null argument where one is needed, is an ERROR line with the EINVAL text; lines name
// the operation and "w32_common/registry". Value names: null and "" are the key's default value,
// which lines show as "". Key and value names ignore case. On Linux the registry is a registry
// export (platform/registry.h). While the calling thread's context has another server's rows
// (call_context.h), they are what is read, and a key is opened and closed under the same ones.
//
// What is not there is an ERROR line for the operations that read ("%s %s" are the key path and the
// value name). Who expects that a value may be missing asks vc_regkey_exists_ex first, which says
// nothing.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/registry.h"

namespace quillfence {

using vc_regroot = platform::registry_root;
using vc_regkey = platform::registry_key;

// --- single values, in the program's own view of the registry ---

// Reads a text value (REG_SZ).
//   limit  the longest text, in bytes without the NUL
//   text   receives a new string, which ends at the data's first NUL or at its end; the caller
//          frees it. Left alone on failure
// ERROR lines: "error opening registry key for read %s %s", "error: unable to query key %s %s" (it
// is missing, or a text above the limit), "error: expected key %s value %s to be type REG_SZ",
// "Out of memory error".
int vc_regkey_get_ex(vc_regroot root, const char *key, const char *value, uint32_t limit,
                     char **text);

// Whether the value exists, of whatever type: 1 or 0. ERROR lines: EINVAL; ENOMEM as
// vc_regkey_open_ex.
int vc_regkey_exists_ex(vc_regroot root, const char *key, const char *value);

// Reads a value's type, a number of platform/registry.h.
// ERROR lines: "error opening registry key for read %s %s", "error: unable to query key %s %s".
int vc_regkey_get_type_ex(vc_regroot root, const char *key, const char *value, uint32_t *type);

// Makes a key, and those above it; one that exists is left as it is.
// ERROR line: "Error creating subkey %s".
int vc_regkey_create_ex(vc_regroot root, const char *key);

// Sets a value, in a key that is made when missing.
//   data  the bytes to store, a text with its NUL; null for none
// ERROR lines: "Error creating subkey %s", "error: unable to set key %s %s".
int vc_regkey_set_ex(vc_regroot root, const char *key, const char *value, uint32_t type,
                     const void *data, uint32_t size);

// --- an open key; nothing here writes a line but EINVAL, and ENOMEM ---

// The access mask of Mail Enable's keys: to read (KEY_READ), in the registry's 32-bit view
// (KEY_WOW64_32KEY).
inline constexpr uint32_t vc_regkey_read_32 = 131609;

// Opens a key with an access mask (platform/registry.h); null when it is missing or may not be
// opened so. ERROR lines: EINVAL, ENOMEM.
vc_regkey *vc_regkey_open_ex(vc_regroot root, const char *key, uint32_t access);
void vc_regkey_close(vc_regkey *key); // null is accepted

// Whether an open key has a value of that name.
int vc_regkey_has_value(vc_regkey *key, const char *value);
// Reads a value of type REG_DWORD and 4 bytes; 0 for any other.
int vc_regkey_get_dword(vc_regkey *key, const char *value, uint32_t *number);

// The name of the index-th value, from 0, in no stated order.
//   name, size  the buffer; a name takes size - 1 characters at most
// Returns 1; -1 for a longer name, which is left out; 0 behind the last value and on failure.
int vc_regkey_value_name(vc_regkey *key, uint32_t index, char *name, size_t size);

// Tells whoever asks (evidence.h) what an open key has under a value's name, of whatever type and
// size, for a look that could not make use of it. The key may be null: it is missing. path names
// it, below HKEY_LOCAL_MACHINE.
void vc_regkey_tell(vc_regkey *key, const char *path, const char *value);

} // namespace quillfence
