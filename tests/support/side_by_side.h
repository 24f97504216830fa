// The same work on several threads at once.
#pragma once

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace quillfence::testing {

// Calls work(0) to work(count - 1), each on a thread of its own; all begin together.
inline void side_by_side(unsigned count, const std::function<void(unsigned)> &work) {
    std::atomic<unsigned> waiting = count;
    std::vector<std::thread> threads;
    for (unsigned number = 0; number < count; ++number) {
        threads.emplace_back([&, number] {
            --waiting;
            while (waiting > 0) {
                std::this_thread::yield();
            }
            work(number);
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

} // namespace quillfence::testing
