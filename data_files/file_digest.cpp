#include "file_digest.h"

#include <new>
#include <vector>

#include "open_file.h"
#include "platform/digest.h"

namespace quillfence::data_files {

void running_digest::releaser::operator()(platform::sha256_digest *digest) const {
    platform::sha256_release(digest);
}

// What the system refuses is a lack of memory here.
static void require(bool done) {
    if (!done) {
        throw std::bad_alloc();
    }
}

running_digest::running_digest() : digest_(platform::sha256_begin()) {
    require(digest_ != nullptr);
}

void running_digest::add(const void *bytes, size_t size) {
    require(platform::sha256_add(digest_.get(), bytes, size));
}

std::string running_digest::text() {
    static constexpr char digits[] = "0123456789abcdef";
    unsigned char result[platform::sha256_size];
    require(platform::sha256_finish(digest_.get(), result));
    std::string text;
    for (const unsigned char byte : result) {
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

std::string digest_of(std::string_view bytes) {
    running_digest digest;
    digest.add(bytes.data(), bytes.size());
    return digest.text();
}

uint32_t digest_of_file(const std::string &path, std::string *digest, uint64_t *size) {
    static constexpr size_t piece_size = 1 << 16;
    open_file file;
    uint32_t error = file.open(path);
    running_digest running;
    std::vector<char> piece(piece_size);
    uint64_t total = 0;
    for (size_t got = piece_size; !error && got == piece_size; total += got) {
        error = file.read(piece.data(), piece.size(), &got);
        running.add(piece.data(), got);
    }
    if (!error) {
        *digest = running.text();
        if (size) {
            *size = total;
        }
    }
    return error;
}

} // namespace quillfence::data_files
