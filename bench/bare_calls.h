// System calls with nothing around them, for a benchmark that wants to know what the calls alone
// cost. The one file outside platform/ that may include an operating system's headers.
#pragma once

#include <cstddef>
#include <cstdint>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quillfence::bare {

inline int open_for_reading(const char *path) {
    return open(path, O_RDONLY | O_CLOEXEC);
}
inline int open_new(const char *path) {
    return open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
}
inline bool exists(const char *path) {
    struct stat status;
    return stat(path, &status) == 0;
}
inline bool has_size(int file) {
    struct stat status;
    return fstat(file, &status) == 0;
}
inline bool read_at(int file, void *buffer, size_t size, uint32_t place) {
    return pread(file, buffer, size, place) == static_cast<ssize_t>(size);
}
inline void close_file(int file) {
    close(file);
}

} // namespace quillfence::bare
