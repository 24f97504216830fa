// Block maps: three-level tables of listed IPv4 addresses.
#pragma once

#include <cstdint>

#include "vc_file.h"
#include "vc_list.h"

namespace quillfence {

int __readBytes(vc_handle file, uint32_t offset, void *buffer, uint32_t length);
// Addresses are in network byte order.
int lookupMap(vc_handle file, uint32_t address);
int lookupMapFile(const char *path, uint32_t address);
int lookupMaps(const char *directory, vc_list_entry *maps, const char *address,
               vc_list_entry **hits);

} // namespace quillfence
