#include "platform/digest.h"

#include <cstdlib>

#include "system.h"

#include <bcrypt.h>

namespace quillfence::platform {

struct sha256_digest {
    BCRYPT_ALG_HANDLE algorithm;
    BCRYPT_HASH_HANDLE hash;
    bool failed;
};

static bool succeeded(NTSTATUS status) {
    return status >= 0;
}

// The most bytes of one call, whose size has 32 bits.
static constexpr size_t largest_piece = 1u << 30;

sha256_digest *sha256_begin() {
    auto *const digest = static_cast<sha256_digest *>(calloc(1, sizeof(sha256_digest)));
    if (!digest) {
        return nullptr;
    }
    if (!succeeded(
            BCryptOpenAlgorithmProvider(&digest->algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0)) ||
        !succeeded(BCryptCreateHash(digest->algorithm, &digest->hash, nullptr, 0, nullptr, 0, 0))) {
        sha256_release(digest);
        return nullptr;
    }
    return digest;
}

bool sha256_add(sha256_digest *digest, const void *bytes, size_t size) {
    auto *at = static_cast<UCHAR *>(const_cast<void *>(bytes)); // BCrypt only reads it
    while (size && !digest->failed) {
        const size_t piece = size < largest_piece ? size : largest_piece;
        digest->failed = !succeeded(BCryptHashData(digest->hash, at, static_cast<ULONG>(piece), 0));
        at += piece;
        size -= piece;
    }
    return !digest->failed;
}

bool sha256_finish(sha256_digest *digest, unsigned char *result) {
    return !digest->failed && succeeded(BCryptFinishHash(digest->hash, result, sha256_size, 0));
}

void sha256_release(sha256_digest *digest) {
    if (!digest) {
        return;
    }
    if (digest->hash) {
        BCryptDestroyHash(digest->hash);
    }
    if (digest->algorithm) {
        BCryptCloseAlgorithmProvider(digest->algorithm, 0);
    }
    free(digest);
}

} // namespace quillfence::platform
