#include "input_splitter.h"

#include <algorithm>

#include "vc_text.h"

namespace quillfence::decision {

static size_t longest_unit(input_format format) {
    switch (format) {
    case input_format::json:
        return longest_json;
    case input_format::policy:
        return longest_policy_request;
    default:
        return longest_line;
    }
}

static bool is_blank(std::string_view line) {
    return std::all_of(line.begin(), line.end(), is_space);
}

input_splitter::input_splitter(input_format format)
    : format_(format), longest_(longest_unit(format)) {}

void input_splitter::add(std::string_view piece) {
    held_.erase(0, unit_begin_);
    at_ -= unit_begin_;
    searched_ -= unit_begin_;
    unit_begin_ = 0;
    held_ += piece;
}

void input_splitter::end() {
    ended_ = true;
}

// The next line without its end. False when it has not arrived as a whole.
bool input_splitter::take_line(std::string_view *line) {
    const size_t feed = held_.find('\n', searched_);
    if (feed == std::string::npos) {
        searched_ = held_.size();
        if (!ended_ || at_ == held_.size()) {
            return false;
        }
    }
    const size_t end = std::min(feed, held_.size());
    *line = std::string_view(held_).substr(at_, end - at_);
    at_ = searched_ = std::min(end + 1, held_.size());
    ++line_;
    if (line->ends_with('\r')) {
        line->remove_suffix(1);
    }
    return true;
}

// Of a line whose beginning was dropped, what is left is no whole line.
bool input_splitter::ends_unit(std::string_view line, bool whole_line) const {
    if (format_ == input_format::policy) {
        return whole_line && line.empty();
    }
    return !indented_ || (whole_line && line == "}");
}

void input_splitter::begin_unit(uint64_t line_number, bool indented) {
    in_unit_ = true;
    unit_line_ = line_number;
    indented_ = indented;
}

// Of what is held, without the line's end.
size_t input_splitter::end_of_last_line() const {
    std::string_view rest = std::string_view(held_).substr(unit_begin_);
    for (const char end : {'\n', '\r'}) {
        rest.remove_suffix(rest.ends_with(end));
    }
    return unit_begin_ + rest.size();
}

// The unit ends at that place of the text, and what is to be told goes on behind the last line.
// True when it has not been told of yet.
bool input_splitter::end_unit(input_unit *unit, size_t end) {
    const bool fresh = !passing_over_;
    const size_t size = end - unit_begin_;
    *unit = {std::string_view(held_).substr(unit_begin_, size), unit_line_, size > longest_};
    if (unit->too_long) {
        unit->text = {};
    }
    in_unit_ = indented_ = passing_over_ = false;
    unit_begin_ = at_;
    return fresh;
}

// Drops what has arrived of a unit that is longer than any may be, up to that place of the text.
// True the first time, when it is to be told.
bool input_splitter::drop_long(input_unit *unit, size_t end) {
    if (!passing_over_ && end - unit_begin_ <= longest_) {
        return false;
    }
    const bool fresh = !passing_over_;
    *unit = {{}, unit_line_, true};
    passing_over_ = true;
    unit_begin_ = end;
    return fresh;
}

// A part of a line that is longer than any may be.
bool input_splitter::drop_long_part(input_unit *unit) {
    if (held_.size() - at_ <= longest_) {
        return false;
    }
    if (!in_unit_) {
        begin_unit(line_, false);
    }
    const bool fresh = drop_long(unit, held_.size());
    at_ = searched_ = held_.size();
    cut_ = true;
    return fresh;
}

bool input_splitter::next(input_unit *unit) {
    std::string_view line;
    for (size_t begin = at_; take_line(&line); begin = at_) {
        const bool whole_line = !cut_;
        cut_ = false;
        if (indented_ && whole_line && line.starts_with('{')) {
            at_ = searched_ = begin; // another document: this one is cut off
            --line_;
            if (end_unit(unit, std::max(begin, unit_begin_ + 1) - 1)) {
                return true;
            }
            continue;
        }
        if (!in_unit_ && is_blank(line)) {
            unit_begin_ = at_;
            continue;
        }
        if (!in_unit_) {
            begin_unit(line_ - 1, format_ == input_format::json && line == "{");
            if (indented_) {
                continue;
            }
        }
        const auto end = static_cast<size_t>(line.data() + line.size() - held_.data());
        if (ends_unit(line, whole_line) ? end_unit(unit, std::max(end, unit_begin_))
                                        : drop_long(unit, at_)) {
            return true;
        }
    }
    return drop_long_part(unit) || (ended_ && in_unit_ && end_unit(unit, end_of_last_line()));
}

} // namespace quillfence::decision
