#include "log_lines.h"

#include <cstring>

namespace quillfence::decision {

static constexpr size_t piece_size = 256 * 1024;

log_lines::log_lines(log_bytes &from) : from_(from), buffer_(piece_size) {}

// More bytes behind those that are there. The buffer grows with the longest line, up to a bound.
bool log_lines::fill() {
    if (filled_ - begin_ > longest_log_line) {
        skipping_ = true;
        begin_ = seen_ = filled_;
    }
    std::memmove(buffer_.data(), buffer_.data() + begin_, filled_ - begin_);
    filled_ -= begin_;
    seen_ -= begin_;
    begin_ = 0;
    if (buffer_.size() - filled_ < piece_size / 2) {
        buffer_.resize(buffer_.size() * 2);
    }
    const size_t got = from_.read(buffer_.data() + filled_, buffer_.size() - filled_);
    filled_ += got;
    return got > 0;
}

bool log_lines::take(size_t size, size_t end, log_line *line) {
    ++number_;
    line->number = number_;
    line->too_long = skipping_ || size > longest_log_line;
    line->text =
        line->too_long ? std::string_view() : std::string_view(buffer_.data() + begin_, size);
    if (line->text.ends_with('\r')) {
        line->text.remove_suffix(1);
    }
    begin_ += size + end;
    seen_ = begin_;
    skipping_ = false;
    return true;
}

bool log_lines::next(log_line *line) {
    for (;;) {
        const char *const from = buffer_.data() + seen_;
        const void *const end = std::memchr(from, '\n', filled_ - seen_);
        if (end) {
            const auto behind = static_cast<size_t>(static_cast<const char *>(end) - from);
            return take(seen_ - begin_ + behind, 1, line);
        }
        seen_ = filled_;
        if (!fill()) {
            return false;
        }
    }
}

bool log_lines::rest(log_line *line) {
    return (filled_ > begin_ || skipping_) && take(filled_ - begin_, 0, line);
}

void log_lines::forget_unfinished() {
    begin_ = seen_ = filled_;
    skipping_ = false;
}

} // namespace quillfence::decision
