// SHA-256 (FIPS 180-4): libnettle's on Linux, the system's (BCrypt) on Windows.
#pragma once

#include <cstddef>

namespace quillfence::platform {

inline constexpr size_t sha256_size = 32;

struct sha256_digest; // opaque

// Begins a digest; release it with sha256_release. Null without memory, or when the system has no
// such digest.
sha256_digest *sha256_begin();
// Takes more bytes in. False when the system fails; then the digest can't be finished.
bool sha256_add(sha256_digest *digest, const void *bytes, size_t size);
// Writes the sha256_size bytes of the whole; nothing can be added after it. False when the system
// fails or failed before.
bool sha256_finish(sha256_digest *digest, unsigned char *result);
void sha256_release(sha256_digest *digest); // null is accepted

} // namespace quillfence::platform
