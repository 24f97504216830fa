// How far a run over many things is, on standard error: how many are done, how many a second, and
// the time that is left. It is drawn on a terminal only, and a few times a second at most.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace quillfence::programs {

class rate_bar {
  public:
    using clock = std::chrono::steady_clock;

    // total is the size of the input, if it is known. The time begins now.
    rate_bar(std::optional<uint64_t> total, bool visible);
    ~rate_bar(); // wipes the bar
    rate_bar(const rate_bar &) = delete;
    rate_bar &operator=(const rate_bar &) = delete;

    // So many are done, and so much of the total has been read.
    void show(uint64_t count, uint64_t read);

  private:
    const std::optional<uint64_t> total_;
    const bool visible_;
    const clock::time_point begin_;
    clock::time_point drawn_;
    size_t width_ = 0; // of what stands there
};

// The bar's text after so many seconds:
//   "[##########..............................]  25%  12300/s  1:05 left"
//   "1234567  12300/s"                     without a total
std::string rate_text(uint64_t count, uint64_t read, std::optional<uint64_t> total, double seconds);

} // namespace quillfence::programs
