// Lines for a terminal: long ones are broken, and some have a colour.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "decision_record.h"

namespace quillfence::programs {

struct text_options {
    size_t width = 80;
    bool colour = false;
};

enum class style { plain, strong, quiet, good, bad, doubtful };
style style_of(decision::verdict is);

// Collects lines and breaks the long ones.
class text_page {
  public:
    // Borrows the options.
    explicit text_page(const text_options &options) : options_(options) {}

    // A paragraph; its lines behind the first begin `hanging` columns further in.
    void paragraph(size_t indent, const std::string &text, style how = style::plain,
                   size_t hanging = 4);
    // A paragraph with an empty line in front of it.
    void heading(const std::string &text);
    // A row of two columns: the second begins at `column`, and stays there when it is broken. It
    // begins on the next line where the name is too long.
    void row(const std::string &name, const std::string &text, size_t column,
             style how = style::plain);
    std::string take() {
        return std::move(text_);
    }

  private:
    size_t room(size_t margin) const;
    std::string_view take_line(std::string_view *left, size_t margin) const;
    void line(size_t margin, std::string_view text, style how);

    const text_options &options_;
    std::string text_;
};

} // namespace quillfence::programs
