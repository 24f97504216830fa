// Takes the stream of a connection apart into requests of the policy protocol while it arrives, in
// pieces of any size. A request is lines up to an empty one; empty lines in front of it are
// dropped.
//
// What it holds is bounded by the longest request (decision/input/input.h) and the piece that was
// added last. A line, a request or a number of lines beyond the bounds is the end: what comes after
// it could be taken for anything.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quillfence::service {

enum class split : unsigned char {
    none,           // no whole request is there yet
    request,        // here is one
    line_too_long,  // from here on it stays so
    text_too_long,  // likewise
    too_many_lines, // likewise
};

class request_splitter {
  public:
    // The next piece of the stream; copied.
    void add(std::string_view piece);
    // Takes the next whole request: its lines as they came, each with its end, without the empty
    // one that ends it.
    split next(std::string *request);

    // How many bytes are held for requests that were not taken yet.
    size_t held() const {
        return held_.size() - begin_;
    }
    // Whether a request has begun that is not whole. Once next() has said that there is none.
    bool is_within() const {
        return lines_ > 0 || at_ < held_.size();
    }

  private:
    split add_line(std::string_view line, size_t end);
    split look_for_line_end();
    void drop_taken();

    std::string held_;
    size_t begin_ = 0;    // of the request
    size_t at_ = 0;       // of its next line
    size_t searched_ = 0; // no line ends between at_ and here
    size_t lines_ = 0;    // of the request so far
    split end_ = split::none;
};

} // namespace quillfence::service
