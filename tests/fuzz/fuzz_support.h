// What every fuzz target needs: its entry point, the input taken apart, a drive c:, and promises
// that end the process when they are broken.
//
// A target defines fuzz_one(). It is called with a log function installed that formats every line
// and throws it away; about half of the inputs, chosen by their bytes, run with DEBUG lines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "drive_c.h"
#include "heap_text.h"

// Ends the process when the condition does not hold, so that the fuzzer keeps the input.
#define QF_PROMISE(condition)                                                                      \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            ::quillfence::testing::promise_broken(#condition, __FILE__, __LINE__);                 \
        }                                                                                          \
    } while (false)

namespace quillfence::testing {

[[noreturn]] void promise_broken(const char *condition, const char *file, int line);

// A block of exactly these bytes on the heap, so that a read behind them is seen. One of size 0
// may be read nowhere.
class exact_bytes {
  public:
    explicit exact_bytes(const std::string &bytes);
    ~exact_bytes();
    exact_bytes(const exact_bytes &) = delete;
    exact_bytes &operator=(const exact_bytes &) = delete;
    const char *begin() const {
        return bytes_;
    }
    const char *end() const {
        return bytes_ + size_;
    }

  private:
    char *bytes_;
    size_t size_;
};

// An input, taken from its front. What is used up reads as zeros and empty texts.
class fuzz_input {
  public:
    fuzz_input(const uint8_t *bytes, size_t size);
    bool empty() const {
        return left_.empty();
    }
    uint8_t byte();
    uint16_t number16(); // little-endian
    uint32_t number32();
    std::string line(); // up to the next LF, which is dropped; a text ends at its first NUL
    std::string bytes(size_t size); // fewer where the input ends
    std::string rest();

  private:
    std::string left_;
};

// One input. Defined by each target.
void fuzz_one(fuzz_input &input);

// The process's drive c:, made at the first call. Targets leave no file behind that changes what
// the next input does.
const drive_c &fuzz_drive();

// What a file holds; nothing for a missing one.
std::string file_bytes(const std::string &path);

// Switches DEBUG lines off for this input: for targets whose program would print them.
void without_debug_lines();

// Takes a dump line for print_state: formats it and throws it away.
int drop_line(int priority, const char *format, ...);

} // namespace quillfence::testing
