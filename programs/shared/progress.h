// A progress bar on standard error, for what takes a while. It is drawn on a terminal only.
#pragma once

#include <cstdint>
#include <string>

namespace quillfence::programs {

class progress {
  public:
    // total 0: not known, nothing is drawn.
    progress(std::string label, uint64_t total);
    ~progress(); // wipes the bar
    progress(const progress &) = delete;
    progress &operator=(const progress &) = delete;

    // Draws the bar anew when `done` of the total makes a visible difference.
    void show(uint64_t done);
    // Wipes the bar, before something else is written to the terminal.
    void wipe();

  private:
    std::string label_;
    uint64_t total_;
    bool visible_;
    int percent_ = -1; // as drawn; -1 for no bar
};

} // namespace quillfence::programs
