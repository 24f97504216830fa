#include "file_output.h"

#include <cerrno>
#include <cstring>

#include "platform/error_numbers.h"
#include "program.h"

namespace quillfence::programs {

file_output::file_output(const std::string &path, platform::file_rights rights) : path_(path) {
    if (const uint32_t error = platform::replacement_begin(path.c_str(), ".tmp", &fresh_, rights)) {
        fail(std::strerror(platform::errno_of(error)));
    }
    stream_.reset(platform::stream_open(fresh_.temporary, "r+b"));
    if (!stream_) {
        const int reason = errno;
        platform::replacement_end(&fresh_);
        fail(std::strerror(reason));
    }
}

file_output::~file_output() {
    stream_.reset();
    platform::replacement_end(&fresh_);
}

void file_output::fail(const std::string &reason) const {
    throw failure(path_ + ": could not be written: " + reason);
}

void file_output::write(const void *bytes, size_t size) {
    if (std::fwrite(bytes, 1, size, stream_.get()) != size) {
        fail(std::strerror(errno));
    }
}

void file_output::commit() {
    errno = 0;
    const bool written = !std::ferror(stream_.get());
    const bool flushed = std::fflush(stream_.get()) == 0;
    const bool closed = std::fclose(stream_.release()) == 0;
    if (!written || !flushed || !closed) {
        fail(errno ? std::strerror(errno) : "a write failed");
    }
    if (const uint32_t error = platform::replacement_commit(&fresh_, nullptr)) {
        fail(std::strerror(platform::errno_of(error)));
    }
}

void refuse_wrong_lines(const line_input &in, const std::string &path, bool keep_going) {
    const uint64_t wrong = in.complaints();
    if (wrong > 0 && !keep_going) {
        throw failure(path + ": was not written, since " + counted(wrong, "line is", "lines are") +
                      " wrong; correct them, or leave them out with --keep-going");
    }
}

exit_status finish_writing(const line_input &in, file_output *out, const std::string &path,
                           const std::string &content) {
    out->commit();
    const uint64_t wrong = in.complaints();
    std::printf("%s: %s%s\n", path.c_str(), content.c_str(),
                wrong > 0 ? (", " + counted(wrong, "line") + " left out").c_str() : "");
    return wrong > 0 ? exit_status::partly : exit_status::done;
}

} // namespace quillfence::programs
