#include "log_bytes.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>

#include <zlib.h>

#include "text.h"

namespace quillfence::decision {

static constexpr uint32_t piece_size = 64 * 1024;
static constexpr std::string_view gzip_mark = "\x1f\x8b";

namespace {

// Others that rotation makes, and who unpacks them.
constexpr struct {
    std::string_view mark;
    const char *tool;
} other_kinds[] = {
    {{"\xfd"
      "7zXZ\0",
      6},
     "xz"},
    {"\x28\xb5\x2f\xfd", "zstd"},
    {"BZh", "bzip2"},
};

} // namespace

struct log_bytes::inflater {
    z_stream stream{};
    bool open = false;

    // With its 32 KiB of window and no more, whatever comes.
    bool begin() {
        constexpr int gzip_alone = 16;
        open = inflateInit2(&stream, MAX_WBITS + gzip_alone) == Z_OK;
        return open;
    }
    ~inflater() {
        if (open) {
            inflateEnd(&stream);
        }
    }
};

log_bytes::log_bytes(source from) : from_(std::move(from)), piece_(piece_size, '\0') {}

log_bytes::~log_bytes() = default;

size_t log_bytes::fail(const std::string &problem) {
    problem_ = problem;
    return 0;
}

// Puts more behind what is left of the piece. False at the end, and when it can't be read.
bool log_bytes::fill() {
    std::memmove(piece_.data(), piece_.data() + used_, filled_ - used_);
    filled_ -= used_;
    used_ = 0;
    uint32_t got = 0;
    error_ = from_(piece_.data() + filled_, static_cast<uint32_t>(piece_size - filled_), &got);
    if (error_) {
        fail(data_files::system_text(error_));
        return false;
    }
    filled_ += got;
    taken_ += got;
    return got > 0;
}

// Looks at the first bytes.
void log_bytes::begin() {
    constexpr size_t longest_mark = 6;
    while (filled_ < longest_mark && fill()) {
    }
    begun_ = filled_ > 0; // else there is nothing yet
    const std::string_view text(piece_.data(), filled_);
    for (const auto &kind : other_kinds) {
        if (text.starts_with(kind.mark)) {
            fail(std::string("is compressed by ") + kind.tool + "; unpack it with " + kind.tool +
                 " -dc and give it on standard input");
        }
    }
    if (problem_.empty() && text.starts_with(gzip_mark)) {
        inflater_ = std::make_unique<inflater>();
        if (!inflater_->begin()) {
            throw std::bad_alloc();
        }
    }
}

size_t log_bytes::read(char *to, size_t size) {
    if (!begun_ && problem_.empty()) {
        begin();
    }
    if (!problem_.empty() || size == 0) {
        return 0;
    }
    if (inflater_) {
        return inflate_to(to, size);
    }
    if (used_ == filled_ && !fill()) {
        return 0;
    }
    const size_t got = std::min(size, filled_ - used_);
    std::memcpy(to, piece_.data() + used_, got);
    used_ += got;
    return got;
}

// A gzip file may be several, one behind the other. False when this was the last.
bool log_bytes::end_member() {
    while (filled_ - used_ < gzip_mark.size() && fill()) {
    }
    const std::string_view rest(piece_.data() + used_, filled_ - used_);
    if (rest.starts_with(gzip_mark)) {
        inflateReset(&inflater_->stream);
        return true;
    }
    ended_ = true;
    if (problem_.empty() && rest.find_first_not_of('\0') != std::string_view::npos) {
        fail("something else follows behind the compressed data");
    }
    return false;
}

size_t log_bytes::inflate_to(char *to, size_t size) {
    z_stream &stream = inflater_->stream;
    size = std::min<size_t>(size, 1 << 30);
    stream.next_out = reinterpret_cast<Bytef *>(to);
    stream.avail_out = static_cast<uInt>(size);
    while (!ended_ && stream.avail_out == size) {
        if (used_ == filled_ && !fill()) {
            return problem_.empty() ? fail("ends in the midst of its compressed data") : 0;
        }
        stream.next_in = reinterpret_cast<Bytef *>(piece_.data() + used_);
        stream.avail_in = static_cast<uInt>(filled_ - used_);
        const int status = inflate(&stream, Z_NO_FLUSH);
        used_ = filled_ - stream.avail_in;
        if (status == Z_MEM_ERROR) {
            throw std::bad_alloc();
        }
        if (status != Z_OK && status != Z_STREAM_END && status != Z_BUF_ERROR) {
            fail(std::string("its compressed data is damaged") +
                 (stream.msg ? std::string(": ") + stream.msg : ""));
            break;
        }
        if (status == Z_STREAM_END && !end_member()) {
            break;
        }
    }
    return size - stream.avail_out;
}

} // namespace quillfence::decision
