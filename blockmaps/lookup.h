// Block maps: files that answer with three small reads whether an IPv4 address is listed.
//
// A file is three levels of tables, by the octets a, b and c.d of an address a.b.c.d:
//
//     offset 0            level 1: 256 entries, entry a
//     at that entry       level 2: 256 entries, entry b
//     at that entry       bitmap of 65536 bits, bit c * 256 + d, the most significant bit first
//
// An entry of 0 lists nothing below it, 0xFFFFFFFF everything, any other is the place of the next
// level. docs/formats/block-maps.md tells the whole format. Addresses are IPv4 in network byte
// order. Lines name the operation and "blockmaps/lookup".
#pragma once

#include <cstdint>

#include "vc_file.h"
#include "vc_list.h"

namespace quillfence {

// Reads exactly length bytes from an absolute offset; the buffer is zeroed first. 1, or 0 also when
// fewer are there (silently). ERROR lines: EINVAL for a null buffer, the invalid handle or a zero
// length; those of vc_seek and vc_read_nonblock.
int __readBytes(vc_handle file, uint32_t offset, void *buffer, uint32_t length);

// Bit n of a byte, 0 being the most significant; an n above 7 gives 0.
int __bitIsSet(uint8_t byte, uint32_t n);

// 1 when the map lists the address, 0 when not or on an error.
// ERROR lines: "invalid file handle", "corrupt BMS file" for an entry that points too near to the
// file's end or behind it; those of __readBytes.
int lookupMap(vc_handle file, uint32_t address);

// The same on a path. A file that does not exist gives 0 silently and is not created.
// ERROR lines: EINVAL for a null path; those of lookupMap and of opening.
int lookupMapFile(const char *path, uint32_t address);

// 1 when at least one map of a list lists the address, else 0.
//   directory  of the maps; joined with "/" even when it ends in one
//   maps       entries whose data are file names; null: 0 with a DEBUG line. A map that is missing
//              is skipped silently, a corrupt one lists nothing
//   address    what the platform's inet_addr takes, but 0.0.0.0 and 255.255.255.255
//   hits       may be null; receives a copy of every entry (data and size) whose map lists the
//              address, in list order
// ERROR lines: EINVAL for a null directory or address, "%s : invalid ip address" (the text of
// EINVAL stands in front, on purpose), ENOMEM when a path cannot be built: then the result is 0
// even if an earlier map listed the address.
int lookupMaps(const char *directory, vc_list_entry *maps, const char *address,
               vc_list_entry **hits);

} // namespace quillfence
