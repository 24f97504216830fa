#include "platform/digest.h"

#include <cstdlib>

#include <nettle/sha2.h>
#undef sha256_digest // a macro there, a name of ours here

namespace quillfence::platform {

struct sha256_digest {
    sha256_ctx context;
};

sha256_digest *sha256_begin() {
    auto *const digest = static_cast<sha256_digest *>(malloc(sizeof(sha256_digest)));
    if (digest) {
        sha256_init(&digest->context);
    }
    return digest;
}

bool sha256_add(sha256_digest *digest, const void *bytes, size_t size) {
    sha256_update(&digest->context, size, static_cast<const uint8_t *>(bytes));
    return true;
}

bool sha256_finish(sha256_digest *digest, unsigned char *result) {
    nettle_sha256_digest(&digest->context, sha256_size, result);
    return true;
}

void sha256_release(sha256_digest *digest) {
    free(digest);
}

} // namespace quillfence::platform
