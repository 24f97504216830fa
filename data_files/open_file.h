// A file that is closed with its object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/file.h"

namespace quillfence::data_files {

// For reading.
class open_file {
  public:
    open_file() = default;
    ~open_file();
    open_file(const open_file &) = delete;
    open_file &operator=(const open_file &) = delete;

    // All return 0 or a Win32 error number. A missing file is not created.
    uint32_t open(const std::string &path);
    uint32_t size(uint64_t *bytes) const;
    uint32_t changed(int64_t *seconds) const; // since 1970, UTC
    // Reads until `size` bytes have come or the file is at its end.
    uint32_t read(void *bytes, size_t size, size_t *got) const;
    uint32_t read_at(uint64_t offset, void *bytes, size_t size, size_t *got) const;

    bool is_open() const {
        return handle_ != platform::invalid_file;
    }
    platform::file_handle handle() const {
        return handle_;
    }

  private:
    platform::file_handle handle_ = platform::invalid_file;
};

} // namespace quillfence::data_files
