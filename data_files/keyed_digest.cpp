#include "keyed_digest.h"

#include <algorithm>
#include <memory>
#include <new>

#include "open_file.h"
#include "text.h"

namespace quillfence::data_files {

// --- the digest ---

namespace {

constexpr size_t block_size = 64;
using block = std::array<unsigned char, block_size>;

struct releaser {
    void operator()(platform::sha256_digest *digest) const {
        platform::sha256_release(digest);
    }
};

} // namespace

// Of two texts, one behind the other.
static keyed_digest digest_of_both(std::string_view first, std::string_view rest) {
    const std::unique_ptr<platform::sha256_digest, releaser> digest(platform::sha256_begin());
    keyed_digest made;
    if (!digest || !platform::sha256_add(digest.get(), first.data(), first.size()) ||
        !platform::sha256_add(digest.get(), rest.data(), rest.size()) ||
        !platform::sha256_finish(digest.get(), made.data())) {
        throw std::bad_alloc();
    }
    return made;
}

template <size_t Size>
static std::string_view text_of(const std::array<unsigned char, Size> &bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

static block block_of(std::string_view key) {
    block made{};
    if (key.size() > block_size) {
        const keyed_digest digest = digest_of_both(key, "");
        std::copy(digest.begin(), digest.end(), made.begin());
    } else {
        std::copy(key.begin(), key.end(), made.begin());
    }
    return made;
}

static block masked(block key, unsigned char mask) {
    for (unsigned char &byte : key) {
        byte ^= mask;
    }
    return key;
}

keyed_digest keyed_digest_of(std::string_view key, std::string_view text) {
    const block padded = block_of(key);
    const keyed_digest inner = digest_of_both(text_of(masked(padded, 0x36)), text);
    return digest_of_both(text_of(masked(padded, 0x5C)), text_of(inner));
}

// --- the file ---

static void drop_line_end(std::string *bytes) {
    if (bytes->ends_with('\n')) {
        bytes->pop_back();
        if (bytes->ends_with('\r')) {
            bytes->pop_back();
        }
    }
}

static key_file no_key(const std::string &path, const std::string &why) {
    return {.failed = path + ": " + why};
}

key_file read_key_file(const std::string &path) {
    constexpr size_t line_end = 2;
    open_file file;
    key_file found;
    size_t got = 0;
    bool is_private = true;
    found.key.resize(largest_key + line_end + 1);
    uint32_t error = file.open(path);
    error = error ? error : file.read(found.key.data(), found.key.size(), &got);
    error = error ? error : platform::file_is_private(file.handle(), &is_private);
    if (error) {
        return no_key(path, system_text(error));
    }
    found.key.resize(got);
    drop_line_end(&found.key);
    if (found.key.size() > largest_key) {
        return no_key(path, "a key has at most " + std::to_string(largest_key) + " bytes");
    }
    if (found.key.size() < shortest_key) {
        return no_key(path, "a key has at least " + std::to_string(shortest_key) +
                                " bytes, and this one has " + std::to_string(found.key.size()));
    }
    if (!is_private) {
        found.warning = path + ": others may read this key";
    }
    return found;
}

} // namespace quillfence::data_files
