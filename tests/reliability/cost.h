// What an operation costs in numbers that are the same on every machine, and whether its cost keeps
// step with the size of its input.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "failing_memory.h"
#include "platform/observer.h"
#include "step_count.h"

namespace quillfence::testing {

struct cost {
    uint64_t steps;        // basic blocks, and bytes that the C library went over
    uint64_t allocations;  // blocks
    uint64_t bytes;        // of all allocations together, so that the peak is below it
    uint64_t calls;        // of the platform
    uint64_t reads;        // those of them that are file_read
    uint64_t stream_bytes; // read from buffered streams
};

// Runs the operation once. There is only one observer of calls, so no other watch may live.
template <class Operation>
cost cost_of(Operation operation) {
    static uint64_t calls;
    static uint64_t reads;
    calls = reads = 0;
    platform::set_call_observer([](const char *call, const char *) -> uint32_t {
        ++calls;
        reads += std::strcmp(call, "file_read") == 0;
        return 0;
    });
    const cost before = {steps_taken(),      allocations_made(), bytes_asked_for(), 0, 0,
                         stream_bytes_read()};
    operation();
    const cost after = {steps_taken(), allocations_made(), bytes_asked_for(), calls,
                        reads,         stream_bytes_read()};
    platform::set_call_observer(nullptr);
    return {after.steps - before.steps,
            after.allocations - before.allocations,
            after.bytes - before.bytes,
            after.calls,
            after.reads,
            after.stream_bytes - before.stream_bytes};
}

// An operation over inputs of any size: made is its input, used runs it.
struct growing_input {
    const char *name;
    std::string (*made)(size_t size);       // an input of about that many bytes
    void (*used)(const std::string &input); // the operation
    uint64_t steps_a_byte;                  // at most
    uint64_t bytes_a_byte;                  // asked of memory, at most
    uint64_t allocations;                   // at most; every_byte for "as many as there are pieces"
};
inline constexpr uint64_t every_byte = UINT64_MAX;

// What does not depend on the size: records, paths, log lines.
inline constexpr uint64_t fixed_steps = 50000;
inline constexpr uint64_t fixed_bytes = 65536;
inline constexpr uint64_t fixed_allocations = 40;
inline constexpr uint64_t fixed_calls = 16;

using preparation = std::function<void(const std::string &input)>;

// Twice the input may cost twice as much, and not more than the row says. prepare, where given, is
// not measured.
inline void expect_in_step(const growing_input &row, size_t size,
                           const preparation &prepare = nullptr) {
    SCOPED_TRACE(row.name);
    const auto measured = [&](const std::string &input) {
        if (prepare) {
            prepare(input);
        }
        return cost_of([&] { row.used(input); });
    };
    const std::string input = row.made(size);
    const std::string twice = row.made(2 * size);
    const cost one = measured(input);
    const cost two = measured(twice);
    EXPECT_GE(twice.size(), 2 * input.size() - input.size() / 8);
    EXPECT_GT(two.steps, 0U) << "nothing was counted";
    EXPECT_LE(two.steps, 2 * one.steps + one.steps / 4 + fixed_steps);
    EXPECT_LE(two.steps, row.steps_a_byte * twice.size() + fixed_steps);
    EXPECT_LE(two.bytes, row.bytes_a_byte * twice.size() + fixed_bytes);
    if (row.allocations != every_byte) {
        EXPECT_LE(two.allocations, row.allocations);
    }
    EXPECT_LE(two.allocations, 2 * one.allocations + one.allocations / 8 + fixed_allocations);
    EXPECT_LE(two.calls, 2 * one.calls + one.calls / 8 + fixed_calls);
}

// The same for a table.
template <size_t count>
void expect_in_step(const growing_input (&rows)[count], size_t size,
                    const preparation &prepare = nullptr) {
    for (const growing_input &row : rows) {
        expect_in_step(row, size, prepare);
    }
}

// A piece as often as it fits, between a beginning and an end.
inline std::string rows_of(size_t size, const std::string &piece, const std::string &head = "",
                           const std::string &tail = "") {
    std::string text = head;
    text.reserve(size + piece.size() + tail.size());
    while (text.size() + piece.size() + tail.size() <= size) {
        text += piece;
    }
    return text + tail;
}

// For a table of inputs that repeat a piece.
template <char const *piece>
std::string row(size_t size) {
    return rows_of(size, piece);
}

} // namespace quillfence::testing
