// SHA-256 digests of files and texts, as 64 hexadecimal digits.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quillfence::data_files {

// Throws std::bad_alloc when the system can't make a digest.
std::string digest_of(std::string_view bytes);

// Of all that a file holds, read piece by piece; *size (may be null) receives the byte count. 0 or
// a Win32 error number. Throws as digest_of does.
uint32_t digest_of_file(const std::string &path, std::string *digest, uint64_t *size = nullptr);

} // namespace quillfence::data_files
