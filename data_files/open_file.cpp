#include "open_file.h"

#include <algorithm>

namespace quillfence::data_files {

open_file::~open_file() {
    if (is_open()) {
        platform::file_close(handle_);
    }
}

uint32_t open_file::open(const std::string &path) {
    return platform::file_open(path.c_str(), {}, &handle_);
}

uint32_t open_file::size(uint64_t *bytes) const {
    return platform::file_size(handle_, bytes);
}

uint32_t open_file::changed(int64_t *seconds) const {
    return platform::file_changed(handle_, seconds);
}

uint32_t open_file::read(void *bytes, size_t size, size_t *got) const {
    static constexpr size_t most = 1 << 20; // in one call
    *got = 0;
    while (*got < size) {
        const auto wanted = static_cast<uint32_t>(std::min(size - *got, most));
        uint32_t moved = 0;
        const uint32_t error =
            platform::file_read(handle_, static_cast<char *>(bytes) + *got, wanted, &moved);
        if (error || !moved) {
            return error;
        }
        *got += moved;
    }
    return 0;
}

uint32_t open_file::read_at(uint64_t offset, void *bytes, size_t size, size_t *got) const {
    *got = 0;
    const uint32_t error = platform::file_seek(handle_, static_cast<int64_t>(offset),
                                               platform::seek_origin::begin, nullptr);
    return error ? error : read(bytes, size, got);
}

} // namespace quillfence::data_files
