// Answers that come later, as a test hears them.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "asker.h"
#include "scripted_source.h"

namespace quillfence::testing {

// The answers to some questions, in the order in which they came.
class heard {
  public:
    dns_sources::asker::listener listener() {
        return [this](answer got) {
            const std::lock_guard guard(lock_);
            all_.push_back(std::move(got));
            change_.notify_all();
        };
    }
    size_t count() {
        const std::lock_guard guard(lock_);
        return all_.size();
    }
    // Waits for so many.
    std::vector<answer> wait(size_t count) {
        std::unique_lock guard(lock_);
        EXPECT_TRUE(change_.wait_for(guard, std::chrono::seconds(30), [&] {
            return all_.size() >= count;
        })) << all_.size();
        return all_;
    }

  private:
    std::mutex lock_;
    std::condition_variable change_;
    std::vector<answer> all_;
};

inline question over_tcp(const std::string &name) {
    question asked = ask_for(name);
    asked.options = platform::dns_query_tcp_only;
    return asked;
}

} // namespace quillfence::testing
