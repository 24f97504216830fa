// What is left of a time that several questions have together.
#pragma once

#include <chrono>
#include <optional>

#include "answer.h"

namespace quillfence::dns_sources {

class time_left {
  public:
    using clock = std::chrono::steady_clock;

    // The time begins now; by_clock tells it.
    explicit time_left(std::chrono::milliseconds total,
                       clock::time_point (*by_clock)() = clock::now);

    // The limit for a question that is asked now: its own, or what is left if that is less; nothing
    // once the time is used up.
    std::optional<std::chrono::milliseconds> limit_of(const question &asked) const;
    // Turns the server's silence into status_deadline where it was the time that ended the
    // question: an answer might have come a little later.
    void judge(answer *got) const;
    clock::time_point end() const {
        return end_;
    }

  private:
    clock::time_point (*now_)();
    clock::time_point end_;
};

} // namespace quillfence::dns_sources
