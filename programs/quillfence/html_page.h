// A page for a browser as it is written: one file without scripts, which loads nothing and can be
// mailed, for light and for dark surroundings. Texts are escaped, raw HTML is the caller's.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quillfence::programs {

class html_page {
  public:
    // Everything up to the body's content.
    void begin(std::string_view title);
    // The page, which is whole with it.
    std::string end();

    html_page &raw(std::string_view html) {
        html_.append(html);
        return *this;
    }
    html_page &text(std::string_view words) {
        append_escaped(words);
        return *this;
    }
    void element(const char *name, std::string_view words) {
        raw("<").raw(name).raw(">").text(words).raw("</").raw(name).raw(">");
    }
    void heading(std::string_view words) {
        element("h2", words);
        raw("\n");
    }
    // Nothing for an empty list.
    void list(const std::vector<std::string> &items) {
        if (items.empty()) {
            return;
        }
        raw("<ul>");
        for (const std::string &item : items) {
            element("li", item);
        }
        raw("</ul>");
    }
    void begin_table(const char *kind, const std::vector<std::string> &columns) {
        raw("<table class=\"").raw(kind).raw("\">\n<thead><tr>");
        for (const std::string &column : columns) {
            raw("<th scope=\"col\">").text(column).raw("</th>");
        }
        raw("</tr></thead>\n<tbody>\n");
    }
    html_page &row_name(std::string_view words) {
        return raw("<th scope=\"row\">").text(words).raw("</th>");
    }
    void end_table() {
        raw("</tbody>\n</table>\n");
    }

  private:
    void append_escaped(std::string_view text);

    std::string html_;
};

} // namespace quillfence::programs
