// The registry as the rows of a call context tell it (call_context.h), with the results that
// platform/registry.h has for the same calls.
#pragma once

#include <cstdint>

#include "call_context.h"
#include "platform/registry.h"

namespace quillfence {

// An open key is the first row that names it: nothing is to be closed, and it is no key for the
// seam.
uint32_t given_key_open(const registry_row *rows, platform::registry_root root, const char *key,
                        platform::registry_key **opened);
uint32_t given_key_query(platform::registry_key *key, const char *value, uint32_t *type, void *data,
                         uint32_t *size);
uint32_t given_key_enumerate(platform::registry_key *key, uint32_t index, char *name,
                             uint32_t *size);

} // namespace quillfence
