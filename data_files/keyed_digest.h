// Digests that only the holder of a key can make: HMAC with SHA-256 (RFC 2104), and the files in
// which such keys stand.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "platform/digest.h"

namespace quillfence::data_files {

using keyed_digest = std::array<unsigned char, platform::sha256_size>;

// Of any text under any key; a key of more than 64 bytes counts as its own digest.
// Throws std::bad_alloc when the system can't make a digest.
keyed_digest keyed_digest_of(std::string_view key, std::string_view text);

inline constexpr size_t shortest_key = 16;
inline constexpr size_t largest_key = 64 * 1024;

struct key_file {
    std::string key{};
    std::string failed{};  // why there is none, in words; "" when there is one
    std::string warning{}; // "" for none
};

// The key in a file: all of its bytes, whatever they are, but for one line end (LF or CR LF) behind
// them. Refused are a file that can't be read, and keys shorter or larger than the above. A key
// that users other than the file's owner may read comes with a warning; Linux only, since on
// Windows the rights are the folder's. The texts name the file and never its contents.
key_file read_key_file(const std::string &path);

} // namespace quillfence::data_files
