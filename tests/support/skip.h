// A test that the machine can't run.
#pragma once

#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

namespace quillfence::testing {

// Whether everything is to be there, and nothing may be skipped.
inline bool in_ci() {
    const char *const ci = std::getenv("CI");
    return ci && !std::strcmp(ci, "true");
}

} // namespace quillfence::testing

// Skips the test with a reason, or fails it where CI=true. It returns from the test.
#define QF_SKIP(reason)                                                                            \
    do {                                                                                           \
        if (::quillfence::testing::in_ci()) {                                                      \
            FAIL() << (reason);                                                                    \
        }                                                                                          \
        GTEST_SKIP() << (reason);                                                                  \
    } while (false)
