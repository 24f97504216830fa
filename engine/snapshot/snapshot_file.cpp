#include "snapshot_file.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/digest.h"
#include "platform/error_numbers.h"
#include "platform/file.h"
#include "snapshot.h"
#include "vc_text.h"

namespace quillfence {

namespace {

// A file that is closed with its scope.
struct reading_file {
    platform::file_handle handle = platform::invalid_file;

    reading_file() = default;
    reading_file(const reading_file &) = delete;
    reading_file &operator=(const reading_file &) = delete;
    ~reading_file() {
        if (handle != platform::invalid_file) {
            platform::file_close(handle);
        }
    }
    uint32_t open(const char *path) {
        return platform::file_open(path, {.when = platform::disposition::open_existing}, &handle);
    }
};

} // namespace

static bool is_missing(uint32_t error) {
    return error == platform::error_file_not_found || error == platform::error_path_not_found;
}

// Reads until size bytes have come or the file ends.
static uint32_t read_some(platform::file_handle file, char *bytes, size_t size, size_t *got) {
    *got = 0;
    uint32_t moved = 1;
    while (*got < size && moved) {
        const auto piece = static_cast<uint32_t>(std::min<size_t>(size - *got, 1 << 20));
        if (const uint32_t error = platform::file_read(file, bytes + *got, piece, &moved)) {
            return error;
        }
        *got += moved;
    }
    return 0;
}

static void write_digits(const unsigned char *digest, char *text) {
    static constexpr char digits[] = "0123456789abcdef";
    for (size_t i = 0; i < platform::sha256_size; ++i) {
        text[2 * i] = digits[digest[i] >> 4];
        text[2 * i + 1] = digits[digest[i] & 15];
    }
    text[2 * platform::sha256_size] = '\0';
}

// Finishes and releases a digest, null included; false without memory.
static bool end_digest(platform::sha256_digest *digest, bool added, char *text) {
    unsigned char result[platform::sha256_size];
    const bool done = digest && added && platform::sha256_finish(digest, result);
    platform::sha256_release(digest);
    *text = '\0';
    if (done) {
        write_digits(result, text);
    }
    return done;
}

bool __sha256_text(const void *bytes, size_t size, char *text) {
    platform::sha256_digest *const digest = platform::sha256_begin();
    return end_digest(digest, digest && platform::sha256_add(digest, bytes, size), text);
}

// Reads an open file of the row's size, and one byte more, which must not be there.
static snapshot_reading take_bytes(platform::file_handle file, frozen_file *row, uint32_t *error) {
    row->bytes = static_cast<char *>(malloc(row->size + 1));
    if (!row->bytes) {
        return snapshot_reading::no_memory;
    }
    size_t got = 0;
    if ((*error = read_some(file, row->bytes, row->size + 1, &got)) != 0) {
        return snapshot_reading::left;
    }
    if (got != row->size) {
        return snapshot_reading::changed;
    }
    row->bytes[row->size] = '\0';
    return __sha256_text(row->bytes, row->size, row->sha256) ? snapshot_reading::kept
                                                             : snapshot_reading::no_memory;
}

// Reads an open file of the row's size for its digest, a piece at a time.
static snapshot_reading digest_bytes(platform::file_handle file, frozen_file *row,
                                     uint32_t *error) {
    static constexpr size_t piece_size = 1 << 20;
    const heap_string piece(static_cast<char *>(malloc(piece_size)));
    platform::sha256_digest *const digest = piece ? platform::sha256_begin() : nullptr;
    bool added = digest;
    uint64_t size = 0;
    for (size_t got = piece_size; added && got == piece_size && !*error; size += got) {
        *error = read_some(file, piece.get(), piece_size, &got);
        added = platform::sha256_add(digest, piece.get(), got);
    }
    if (!end_digest(digest, added, row->sha256)) {
        return snapshot_reading::no_memory;
    }
    return *error              ? snapshot_reading::left
           : size != row->size ? snapshot_reading::changed
                               : snapshot_reading::kept;
}

// Keeps a file open in the row.
static snapshot_reading keep_open(reading_file *file, frozen_file *row, uint32_t *error) {
    const snapshot_reading done = digest_bytes(file->handle, row, error);
    if (done == snapshot_reading::kept) {
        row->file = file->handle;
        file->handle = platform::invalid_file;
    }
    return done;
}

snapshot_reading __read_frozen_file(frozen_file *row, large_files large, uint32_t *error) {
    *error = 0;
    row->error = platform::path_attributes(row->path, &row->attributes);
    if (row->error && !is_missing(row->error)) {
        *error = row->error;
        return snapshot_reading::left;
    }
    if (row->error || row->attributes & platform::attribute_directory) {
        return snapshot_reading::kept;
    }
    reading_file file;
    *error = file.open(row->path);
    if (is_missing(*error)) {
        return snapshot_reading::changed;
    }
    if (!*error) {
        *error = platform::file_size(file.handle, &row->size);
    }
    if (!*error) {
        *error = platform::file_changed(file.handle, &row->changed);
    }
    if (*error || (row->size > large.above && !large.keep_open)) {
        return snapshot_reading::left;
    }
    return row->size > large.above ? keep_open(&file, row, error)
                                   : take_bytes(file.handle, row, error);
}

// Whether an open file holds these bytes and no more.
static bool holds_bytes(platform::file_handle file, const char *bytes, uint64_t size) {
    char piece[32768];
    for (;;) {
        size_t got = 0;
        if (read_some(file, piece, sizeof piece, &got) || got > size ||
            memcmp(piece, bytes, got) != 0) {
            return false;
        }
        bytes += got;
        size -= got;
        if (got < sizeof piece) {
            return size == 0;
        }
    }
}

// Whether an open file has the row's size and digest.
static bool has_same_digest(platform::file_handle file, const frozen_file *row) {
    frozen_file again = {};
    again.size = row->size;
    uint32_t error = 0;
    return digest_bytes(file, &again, &error) == snapshot_reading::kept &&
           strcmp(again.sha256, row->sha256) == 0;
}

bool __is_as_frozen(const frozen_file *row) {
    uint32_t attributes = 0;
    const uint32_t error = platform::path_attributes(row->path, &attributes);
    if (error != row->error || attributes != row->attributes) {
        return false;
    }
    if (!row->is_file()) {
        return true;
    }
    reading_file file;
    return !file.open(row->path) && (row->bytes ? holds_bytes(file.handle, row->bytes, row->size)
                                                : has_same_digest(file.handle, row));
}

} // namespace quillfence
