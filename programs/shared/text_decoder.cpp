#include "text_decoder.h"

namespace quillfence::programs {

static constexpr unsigned replacement_character = 0xFFFD;

static void append_utf8(std::string *to, unsigned point) {
    const auto continuation = [point](unsigned shift) {
        return static_cast<char>(0x80 | (point >> shift & 0x3F));
    };
    if (point < 0x80) {
        *to += static_cast<char>(point);
    } else if (point < 0x800) {
        *to += {static_cast<char>(0xC0 | point >> 6), continuation(0)};
    } else if (point < 0x10000) {
        *to += {static_cast<char>(0xE0 | point >> 12), continuation(6), continuation(0)};
    } else {
        *to += {static_cast<char>(0xF0 | point >> 18), continuation(12), continuation(6),
                continuation(0)};
    }
}

// By the bytes that wait; false when there are too few yet.
bool text_decoder::recognise(bool is_all) {
    static constexpr struct {
        std::string_view mark;
        encoding is;
    } marks[] = {
        {"\xEF\xBB\xBF", encoding::utf8},
        {"\xFF\xFE", encoding::utf16_le},
        {"\xFE\xFF", encoding::utf16_be},
    };
    for (const auto &[mark, is] : marks) {
        if (waiting_.starts_with(mark)) {
            waiting_.erase(0, mark.size());
            is_ = is;
            return true;
        }
        if (!is_all && mark.starts_with(waiting_)) {
            return false;
        }
    }
    is_ = encoding::unmarked;
    return true;
}

void text_decoder::end_pair() {
    if (high_) {
        append_utf8(&text_, replacement_character);
        high_ = 0;
    }
}

void text_decoder::take_unit(unsigned unit) {
    const bool is_low = unit >= 0xDC00 && unit <= 0xDFFF;
    if (high_ && is_low) {
        append_utf8(&text_, 0x10000 + ((high_ - 0xD800) << 10) + (unit - 0xDC00));
        high_ = 0;
        return;
    }
    end_pair();
    if (unit >= 0xD800 && unit <= 0xDBFF) {
        high_ = unit;
    } else {
        append_utf8(&text_, is_low ? replacement_character : unit);
    }
}

void text_decoder::take_units(bool is_all) {
    size_t at = 0;
    for (; at + 1 < waiting_.size(); at += 2) {
        const unsigned first = static_cast<unsigned char>(waiting_[at]);
        const unsigned second = static_cast<unsigned char>(waiting_[at + 1]);
        take_unit(is_ == encoding::utf16_le ? first | second << 8 : first << 8 | second);
    }
    waiting_.erase(0, at);
    if (is_all) {
        end_pair();
        if (!waiting_.empty()) { // half a unit
            append_utf8(&text_, replacement_character);
        }
    }
}

std::string_view text_decoder::decode(std::string_view bytes) {
    if (is_ == encoding::unmarked || is_ == encoding::utf8) {
        return bytes; // nothing waits
    }
    text_.clear();
    waiting_ += bytes;
    if (is_ == encoding::unknown && !recognise(false)) {
        return text_;
    }
    if (is_utf16()) {
        take_units(false);
    } else {
        text_.swap(waiting_);
        waiting_.clear();
    }
    return text_;
}

std::string_view text_decoder::finish() {
    text_.clear();
    if (is_ == encoding::unknown) {
        recognise(true);
    }
    if (is_utf16()) {
        take_units(true);
    } else {
        text_ = waiting_;
    }
    waiting_.clear();
    return text_;
}

std::string_view text_decoder::remark() const {
    switch (is_) {
    case encoding::utf16_le:
    case encoding::utf16_be:
        return "is a text in UTF-16, which is read as such";
    case encoding::utf8:
        return "begins with a byte order mark, which is left out";
    case encoding::unknown:
    case encoding::unmarked:
        break;
    }
    return "";
}

} // namespace quillfence::programs
