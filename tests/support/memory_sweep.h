// Operations without memory, as a table: each is run with its first, second, ... allocation
// failing, up to the run in which none failed.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>
#include <string>

#include <gtest/gtest.h>

#include "failing_memory.h"
#include "log_capture.h"

namespace quillfence::testing {

enum class without_memory : uint8_t {
    fails,          // reports a failure and says why
    fails_silently, // reports a failure; its header promises no line
    goes_on,        // may succeed without what it had no memory for, but says so
};

struct memory_case {
    const char *name;  // the operation, and what about it
    void (*prepare)(); // before every run, with memory; null for nothing
    bool (*run)();     // the operation alone; whether it says that it succeeded
    void (*judge)();   // what holds after a run without memory; null for nothing more
    without_memory then = without_memory::fails;
    const char *line = "";    // a part of the operation's own text for a lack of memory
    unsigned allocations = 0; // how many it makes; 0 where that is nobody's promise
    lines (*said)(unsigned n) =
        nullptr; // its ERROR lines when the n-th fails; null: those of memory
};

// The line of a function that had no memory.
inline std::string no_memory(const char *function) {
    return std::string(function) + ": " + strerror(ENOMEM);
}

inline bool tells_of_memory(const lines &errors, const std::string &own_text) {
    const auto told = [&errors](const std::string &text) {
        return !text.empty() && std::any_of(errors.begin(), errors.end(), [&](const auto &error) {
            return error.find(text) != std::string::npos;
        });
    };
    // Some modules have texts of their own for it: vc_list (that of number 125), vc_dns, the map.
    return told(strerror(ENOMEM)) || told(own_text) || told(strerror(125)) ||
           told("out of memory") || told("Failed to initialize buckets of new map") ||
           told("Failed to initialize new map") || told("Cannot create new key-value pair");
}

inline std::string joined(const lines &errors) {
    std::string text;
    for (const std::string &error : errors) {
        text += "\n  " + error;
    }
    return text;
}

// What one run, whose n-th allocation was to fail, must have done. Its ERROR lines are taken.
inline void judge_run(const memory_case &one, log_capture &log, unsigned n, bool fired,
                      bool succeeded) {
    const lines errors = log.errors();
    if (!fired) {
        EXPECT_TRUE(succeeded) << "with memory";
        EXPECT_TRUE(errors.empty()) << "with memory:" << joined(errors);
        return;
    }
    if (one.then != without_memory::goes_on) {
        EXPECT_FALSE(succeeded) << "without memory";
    }
    if (one.then == without_memory::fails_silently) {
        EXPECT_TRUE(errors.empty()) << "a promise of no line:" << joined(errors);
    } else {
        EXPECT_TRUE(tells_of_memory(errors, one.line)) << "got these lines:" << joined(errors);
    }
    if (one.said) {
        EXPECT_EQ(errors, one.said(n));
    }
    if (one.judge) {
        one.judge();
    }
}

inline int failures_so_far() {
    return ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

// Runs a table. release gives back whatever prepare and the operations leave behind, also when
// there is nothing; after it no block may be left.
inline void sweep(log_capture &log, std::span<const memory_case> cases, void (*release)()) {
    constexpr unsigned limit = 10000;
    for (const memory_case &one : cases) {
        SCOPED_TRACE(one.name);
        const int failures = failures_so_far();
        bool fired = true;
        unsigned n = 0;
        while (fired && ++n < limit) {
            SCOPED_TRACE("allocation " + std::to_string(n));
            log.take();
            const long before = live_allocations();
            if (one.prepare) {
                one.prepare();
            }
            bool succeeded;
            {
                failing_allocation failing(n);
                succeeded = one.run();
                fired = failing.fired();
            }
            judge_run(one, log, n, fired, succeeded);
            release();
            log.take();
            EXPECT_EQ(live_allocations() - before, 0) << "blocks left";
            if (failures_so_far() != failures) {
                break; // one account of a case is enough
            }
        }
        EXPECT_TRUE(n > 1 || fired) << "an operation that allocates nothing does not belong here";
        EXPECT_LT(n, limit);
        if (one.allocations && !fired) {
            EXPECT_EQ(n - 1, one.allocations);
        }
    }
}

} // namespace quillfence::testing
