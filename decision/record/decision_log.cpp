#include "decision_log.h"

#include <new>
#include <utility>

#include "platform/error_numbers.h"

namespace quillfence::decision {

using platform::file_handle;

// Whether the file ends in the middle of a line: somebody was cut short. False when that can't be
// found out, as of a device.
static bool ends_torn(const std::string &path) {
    file_handle file = platform::invalid_file;
    if (platform::file_open(path.c_str(), {}, &file)) {
        return false;
    }
    uint64_t size = 0;
    char last = '\n';
    uint32_t moved = 0;
    if (!platform::file_size(file, &size) && size > 0 &&
        !platform::file_seek(file, -1, platform::seek_origin::end, nullptr)) {
        platform::file_read(file, &last, 1, &moved);
    }
    platform::file_close(file);
    return last != '\n';
}

static uint32_t open_log(const std::string &path, file_handle *file) {
    return platform::file_open(
        path.c_str(),
        {.append = true, .of_owner = true, .when = platform::disposition::open_always}, file);
}

decision_log::~decision_log() {
    if (file_ != platform::invalid_file) {
        platform::file_close(file_);
    }
}

uint32_t decision_log::open(const std::string &path) {
    path_ = path;
    return reopen();
}

uint32_t decision_log::reopen() {
    file_handle fresh = platform::invalid_file;
    if (const uint32_t error = open_log(path_, &fresh)) {
        return error;
    }
    const std::lock_guard guard(lock_);
    torn_ = ends_torn(path_);
    std::swap(file_, fresh);
    if (fresh != platform::invalid_file) {
        platform::file_close(fresh);
    }
    return 0;
}

uint32_t decision_log::append(std::string_view text) {
    uint32_t moved = 0;
    const uint32_t error =
        platform::file_write(file_, text.data(), static_cast<uint32_t>(text.size()), &moved);
    if (error) {
        return error;
    }
    if (moved > 0) {
        torn_ = text[moved - 1] != '\n';
    }
    return moved == text.size() ? platform::error_none : platform::error_disk_full;
}

uint32_t decision_log::write(std::string_view line) noexcept {
    const std::lock_guard guard(lock_);
    if (!torn_) {
        return append(line);
    }
    try {
        return append("\n" + std::string(line));
    } catch (const std::bad_alloc &) {
        return platform::error_not_enough_memory;
    }
}

} // namespace quillfence::decision
