// Captures the log lines of the code under test, and fails a test that leaves ERROR lines behind
// which it did not ask for: so every test guards the error lines for free.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quillfence::testing {

struct log_line {
    int priority = 0;
    std::string source; // module name; empty for an information line
    int line = 0;
    std::string function;
    std::string message;
    bool operator==(const log_line &) const = default;
};

// While one lives, it is the process's log function. Only one at a time.
class log_capture {
  public:
    // verbose: with DEBUG lines (VERBOSEDEBUG set) or without.
    explicit log_capture(bool verbose = false);
    ~log_capture(); // ERROR lines that were not taken fail the test
    log_capture(const log_capture &) = delete;
    log_capture &operator=(const log_capture &) = delete;

    // The captured lines, in order; they are forgotten here.
    std::vector<log_line> take();
    // Only the ERROR lines as "function: message". All captured lines are forgotten.
    std::vector<std::string> errors();
    // Only the DEBUG lines as "function: message". ERROR lines stay, all others are forgotten.
    std::vector<std::string> debugs();
    // ERROR, WARNING and DEBUG lines in order as "E function: message", "W ..." and "D ...",
    // information lines as "I message". All captured lines are forgotten.
    std::vector<std::string> transcript();
};

// A test with its own capture, without DEBUG lines.
class logged_test : public ::testing::Test {
  protected:
    log_capture log;
};
// The same with DEBUG lines.
class traced_test : public ::testing::Test {
  protected:
    log_capture log{true};
};

using lines = std::vector<std::string>;

} // namespace quillfence::testing
