// Takes a stream of text apart into units, as take_input() does with a whole text, while the text
// arrives in pieces of any size. What it holds is bounded by the longest unit.
//
// A unit that is too long is passed over and told as such. A document that is indented ends where
// its closing bracket stands alone on a line; when a line begins with an opening one before that,
// the document is cut off there, and the next one begins.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "input.h"

namespace quillfence::decision {

struct input_unit {
    std::string_view text; // without the end of its last line; "" for one that is too long
    uint64_t line = 0;     // where it begins, from 1
    bool too_long = false;
};

class input_splitter {
  public:
    explicit input_splitter(input_format format);

    // The next piece of the stream; copied.
    void add(std::string_view piece);
    // The stream has ended: the last line may lack its end.
    void end();
    // The next unit that is whole, up to the next call of add(). False when there is none yet.
    bool next(input_unit *unit);

    // How many bytes are held back for a unit that is not whole.
    size_t held() const {
        return held_.size() - unit_begin_;
    }

  private:
    bool take_line(std::string_view *line);
    bool ends_unit(std::string_view line, bool whole_line) const;
    void begin_unit(uint64_t line_number, bool indented);
    size_t end_of_last_line() const;
    bool end_unit(input_unit *unit, size_t end);
    bool drop_long(input_unit *unit, size_t end);
    bool drop_long_part(input_unit *unit);

    const input_format format_;
    const size_t longest_;
    std::string held_;
    size_t unit_begin_ = 0; // what stands in front of it was given
    size_t at_ = 0;         // where the next line begins
    size_t searched_ = 0;   // no line ends between at_ and here
    uint64_t line_ = 1;     // number of the next line
    uint64_t unit_line_ = 0;
    bool in_unit_ = false;
    bool indented_ = false;     // the unit is a document of several lines
    bool passing_over_ = false; // it is too long, and has been told
    bool cut_ = false;          // the beginning of the next line was dropped
    bool ended_ = false;
};

} // namespace quillfence::decision
