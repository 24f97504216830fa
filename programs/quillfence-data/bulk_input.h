// The lines of one edit that is made as a whole or not at all: all wrong lines are named before
// anything is written.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "data_program.h"
#include "line_input.h"

namespace quillfence::data_tool {

class bulk_input {
  public:
    static constexpr uint64_t most_complaints = 100; // that are shown
    static constexpr size_t most_items = 1000000;    // of one edit

    // "-" is standard input. Throws a failure when the file can't be opened.
    explicit bulk_input(const std::string &path);

    // As line_input.
    bool next(std::string_view *line) {
        return in_.next(line);
    }
    uint64_t number() const {
        return in_.number();
    }

    // About the line that was read last, and about any.
    void complain(const std::string &text) {
        complain_of(number(), text);
    }
    void complain_of(uint64_t line, const std::string &text);
    // Throws a failure when the lines have come to more than an edit takes.
    void require_room(size_t items) const;
    // Throws a failure, which says that the edited file is as it was, when a line was complained
    // about.
    void require_sound(const std::string &edited) const;

  private:
    const std::string name_;
    line_input in_;
    uint64_t complaints_ = 0;
};

// " (2 were there already, 1 was named twice)"; "" for none of either.
std::string passed_over_text(uint64_t present, uint64_t repeated);

} // namespace quillfence::data_tool
