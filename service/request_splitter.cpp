#include "request_splitter.h"

#include <algorithm>

#include "input.h"

namespace quillfence::service {

using decision::longest_policy_line;
using decision::longest_policy_request;
using decision::most_policy_lines;

// A connection that waits for its next request keeps no more than this of the memory that its
// earlier ones took.
static constexpr size_t kept_memory = 4096;

void request_splitter::add(std::string_view piece) {
    drop_taken();
    held_ += piece;
}

void request_splitter::drop_taken() {
    held_.erase(0, begin_);
    at_ -= begin_;
    searched_ -= begin_;
    begin_ = 0;
    if (held_.empty() && held_.capacity() > kept_memory) {
        held_.shrink_to_fit();
    }
}

// The next line is not whole yet; it may have a CR in front of the LF that is to come.
split request_splitter::look_for_line_end() {
    searched_ = held_.size();
    if (held_.size() - at_ > longest_policy_line + 1) {
        return end_ = split::line_too_long;
    }
    return split::none;
}

// The line that ends in front of `end`, which is not empty.
split request_splitter::add_line(std::string_view line, size_t end) {
    if (line.size() > longest_policy_line) {
        return end_ = split::line_too_long;
    }
    if (++lines_ > most_policy_lines) {
        return end_ = split::too_many_lines;
    }
    if (end - begin_ > longest_policy_request) {
        return end_ = split::text_too_long;
    }
    return split::none;
}

split request_splitter::next(std::string *request) {
    while (end_ == split::none) {
        const size_t end = held_.find('\n', searched_);
        if (end == std::string::npos) {
            return look_for_line_end();
        }
        std::string_view line = std::string_view(held_).substr(at_, end - at_);
        line.remove_suffix(line.ends_with('\r'));
        const size_t line_begin = at_;
        at_ = searched_ = end + 1;
        if (!line.empty()) {
            add_line(line, at_);
        } else if (lines_ > 0) {
            request->assign(held_, begin_, line_begin - begin_);
            begin_ = at_;
            lines_ = 0;
            return split::request;
        } else {
            begin_ = at_;
        }
    }
    return end_;
}

} // namespace quillfence::service
