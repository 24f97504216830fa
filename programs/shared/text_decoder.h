// The bytes of a text file as UTF-8: PowerShell and editors write texts in UTF-16, or with a byte
// order mark in front. A text without a mark is taken as it is.
#pragma once

#include <string>
#include <string_view>

namespace quillfence::programs {

class text_decoder {
  public:
    // A file's next bytes, in pieces of any size. What they are as UTF-8 is borrowed until the next
    // call; it lags behind by a few bytes. A lone surrogate becomes U+FFFD.
    std::string_view decode(std::string_view bytes);
    // Behind the last piece: what was held back for want of more.
    std::string_view finish();

    // What the text is written in, for people; "" for one without a mark. Known as soon as anything
    // has been decoded.
    std::string_view remark() const;

  private:
    enum class encoding { unknown, unmarked, utf8, utf16_le, utf16_be };
    bool recognise(bool is_all);
    bool is_utf16() const {
        return is_ == encoding::utf16_le || is_ == encoding::utf16_be;
    }
    void take_units(bool is_all);
    void take_unit(unsigned unit);
    void end_pair();

    encoding is_ = encoding::unknown;
    std::string waiting_; // bytes that are not decoded yet
    unsigned high_ = 0;   // the first surrogate of a pair whose second has not come
    std::string text_;
};

} // namespace quillfence::programs
