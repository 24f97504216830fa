// The engine, which is started as long as the object lives.
#pragma once

#include <gtest/gtest.h>

#include "quillfence.h"

namespace quillfence::testing {

class started_engine {
  public:
    started_engine() {
        EXPECT_EQ(quillfence_init(), 1);
    }
    ~started_engine() {
        quillfence_teardown();
    }
    started_engine(const started_engine &) = delete;
    started_engine &operator=(const started_engine &) = delete;
};

} // namespace quillfence::testing
