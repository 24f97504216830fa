// A whole list of patterns, with the conditions around them folded in (pattern_conditions.h).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "pattern_text.h"

namespace quillfence::data_files {

struct list_problem {
    bool is_error; // else a warning
    std::string text;
};

// A line that holds a pattern, or about which there is something to say.
struct list_pattern {
    uint64_t number; // of the line
    // What it stands for, usually one: none for a wrong line, and where its conditions leave
    // nothing of the pattern; several where conditions made several of it.
    std::vector<std::string> patterns{};
    std::vector<list_problem> problems{};
};

class pattern_list {
  public:
    // takes: whether a line with this action is wanted; "" for one without. It is asked once a
    // pattern, in order.
    explicit pattern_list(std::function<bool(const std::string &)> takes)
        : takes_(std::move(takes)) {}

    // The next line, as pattern_reader understands it.
    void add(uint64_t number, std::string_view line);

    // All lines, in order. A condition that a pattern under it can't carry is an error of the
    // condition's line, and the pattern stands without that condition.
    std::vector<list_pattern> finish();

  private:
    struct condition {
        size_t line; // in lines_
        std::string text{};
        bool negated = false;
        bool is_wrong = false;
        uint64_t patterns = 0; // under it
        uint64_t unfolded = 0;
        uint64_t first_unfolded = 0; // its line
    };

    list_pattern *new_line(uint64_t number);
    void complain(size_t line, std::string text);
    void begin_condition(uint64_t number, std::string text, bool negated);
    void begin_wrong_condition(uint64_t number, std::string problem);
    void end_condition(uint64_t number);
    void add_pattern(uint64_t number, const std::string &pattern);

    std::function<bool(const std::string &)> takes_;
    pattern_reader reader_;
    std::vector<list_pattern> lines_;
    std::vector<condition> open_; // the innermost one last
};

} // namespace quillfence::data_files
