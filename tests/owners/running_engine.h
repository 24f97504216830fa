// The engine, which runs as long as the object lives.
#pragma once

#include <gtest/gtest.h>

#include "quillfence.h"

namespace quillfence::testing {

class running_engine {
  public:
    running_engine() {
        EXPECT_EQ(quillfence_init(), 1);
    }
    ~running_engine() {
        quillfence_teardown();
    }
    running_engine(const running_engine &) = delete;
    running_engine &operator=(const running_engine &) = delete;
};

} // namespace quillfence::testing
