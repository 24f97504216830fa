#include "text_page.h"

#include <algorithm>

namespace quillfence::programs {

static const char *code_of(style of) {
    switch (of) {
    case style::strong:
        return "\x1b[1m";
    case style::quiet:
        return "\x1b[2m";
    case style::good:
        return "\x1b[1;32m";
    case style::bad:
        return "\x1b[1;31m";
    case style::doubtful:
        return "\x1b[1;33m";
    case style::plain:
        break;
    }
    return "";
}

style style_of(decision::verdict is) {
    return is == decision::verdict::accept   ? style::good
           : is == decision::verdict::reject ? style::bad
                                             : style::doubtful;
}

void text_page::paragraph(size_t indent, const std::string &text, style how, size_t hanging) {
    std::string_view left = text;
    for (bool first = true; first || !left.empty(); first = false) {
        const size_t margin = indent + (first ? 0 : hanging);
        line(margin, take_line(&left, margin), how);
    }
}

void text_page::heading(const std::string &text) {
    text_ += '\n';
    paragraph(0, text, style::strong);
}

void text_page::row(const std::string &name, const std::string &text, size_t column, style how) {
    if (name.size() + 4 > column) {
        paragraph(2, name, how);
        paragraph(column, text, how, 0);
        return;
    }
    paragraph(2, name + std::string(column - name.size() - 2, ' ') + text, how, column - 2);
}

size_t text_page::room(size_t margin) const {
    return options_.width > margin + 20 ? options_.width - margin : 20;
}

// Where a text that is too long for a line is broken: at a blank, else behind a comma, else where
// the room ends.
static size_t break_of(std::string_view text, size_t most) {
    const size_t blank = text.rfind(' ', most);
    const size_t word = text.find_first_not_of(' ');
    if (blank != std::string_view::npos && blank > word) {
        return blank;
    }
    const size_t comma = text.rfind(',', most - 1);
    return comma == std::string_view::npos ? most : comma + 1;
}

std::string_view text_page::take_line(std::string_view *left, size_t margin) const {
    const size_t most = room(margin);
    const size_t end = left->size() > most ? break_of(*left, most) : left->size();
    const std::string_view taken = left->substr(0, end);
    left->remove_prefix(end);
    left->remove_prefix(std::min(left->find_first_not_of(' '), left->size()));
    return taken;
}

void text_page::line(size_t margin, std::string_view text, style how) {
    text = text.substr(0, text.find_last_not_of(' ') + 1);
    text_.append(text.empty() ? 0 : margin, ' ');
    const bool coloured = options_.colour && how != style::plain && !text.empty();
    text_.append(coloured ? code_of(how) : "").append(text);
    text_.append(coloured ? "\x1b[0m\n" : "\n");
}

} // namespace quillfence::programs
