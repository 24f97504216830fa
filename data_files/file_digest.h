// SHA-256 digests of files and texts, as 64 hexadecimal digits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace quillfence::platform {
struct sha256_digest;
}

namespace quillfence::data_files {

// Throws std::bad_alloc when the system can't make a digest.
std::string digest_of(std::string_view bytes);

// One that is made piece by piece. All throw as digest_of does.
class running_digest {
  public:
    running_digest();
    void add(const void *bytes, size_t size);
    std::string text(); // nothing can be added after it

  private:
    struct releaser {
        void operator()(platform::sha256_digest *digest) const;
    };
    std::unique_ptr<platform::sha256_digest, releaser> digest_;
};

// Of all that a file holds, read piece by piece; *size (may be null) receives the byte count. 0 or
// a Win32 error number. Throws as digest_of does.
uint32_t digest_of_file(const std::string &path, std::string *digest, uint64_t *size = nullptr);

} // namespace quillfence::data_files
