// Makes allocations fail on purpose, and counts them: every test program is linked with a malloc,
// calloc, realloc, strdup and free of its own in front of the C library's. What a shared library
// allocates and frees inside itself is not seen.
#pragma once

#include <gtest/gtest.h>

#include "allocation_pause.h"

namespace quillfence::testing {

// While one lives, the n-th allocation from now on (counted from 1) returns null with errno ENOMEM;
// those before it succeed, and those after it do unless all_after is set. Call only the operation
// under test meanwhile: on Windows the test's own strings are counted too. Only one at a time.
class failing_allocation {
  public:
    explicit failing_allocation(unsigned n, bool all_after = false);
    ~failing_allocation();
    failing_allocation(const failing_allocation &) = delete;
    failing_allocation &operator=(const failing_allocation &) = delete;

    bool fired() const; // whether the n-th allocation has come
};

// How many blocks have been allocated and not freed so far. Pauses make no difference here.
long live_allocations();
// How many were ever allocated outside of pauses, and how many bytes were asked for; a block that
// grows counts with its new size each time.
unsigned long allocations_made();
unsigned long long bytes_asked_for();

// Runs operation() with its first, second, ... allocation failing, and check(n) after each run, up
// to the run in which none failed; that run is not checked. Returns how many failed.
template <class Operation, class Check>
unsigned sweep_allocations(Operation operation, Check check) {
    constexpr unsigned limit = 10000;
    for (unsigned n = 1; n < limit; ++n) {
        bool fired;
        {
            failing_allocation failing(n);
            operation();
            fired = failing.fired();
        }
        if (!fired) {
            return n - 1;
        }
        check(n);
    }
    ADD_FAILURE() << "more than " << limit << " allocations";
    return limit;
}

} // namespace quillfence::testing
