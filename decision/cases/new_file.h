// A file that is made anew and closed with its object.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "platform/error_numbers.h"
#include "platform/file.h"

namespace quillfence::decision {

class new_file {
  public:
    new_file() = default;
    ~new_file() {
        close();
    }
    new_file(const new_file &) = delete;
    new_file &operator=(const new_file &) = delete;

    // All return 0 or a Win32 error number. Nothing of that name is there before, not even a link.
    uint32_t create(const std::string &path) {
        return platform::file_open(
            path.c_str(), {.write = true, .when = platform::disposition::create_new}, &handle_);
    }
    uint32_t write(const char *bytes, size_t size) {
        static constexpr size_t most = 1 << 20; // in one call
        for (uint32_t moved = 0; size; bytes += moved, size -= moved) {
            const auto wanted = static_cast<uint32_t>(std::min(size, most));
            if (const uint32_t error = platform::file_write(handle_, bytes, wanted, &moved)) {
                return error;
            }
            if (!moved) {
                return platform::error_disk_full;
            }
        }
        return 0;
    }
    uint32_t close() {
        const platform::file_handle open = handle_;
        handle_ = platform::invalid_file;
        return open == platform::invalid_file ? 0 : platform::file_close(open);
    }

  private:
    platform::file_handle handle_ = platform::invalid_file;
};

} // namespace quillfence::decision
