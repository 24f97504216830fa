// A block map, cut down to what it answers about one client.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "open_file.h"

namespace quillfence::decision {

// The bytes of a map (docs/formats/block-maps.md) that answers for this address as the one in the
// file does: listed or not, at the same level, or corrupt, or cut off. It lists nobody else but in
// the network that the answer is about, and has at most 10,240 bytes. Nothing when the file can't
// be read; *error then receives a Win32 error number.
//   address  IPv4, network byte order
std::optional<std::string> cut_map(const data_files::open_file &map, uint32_t address,
                                   uint32_t *error);

} // namespace quillfence::decision
