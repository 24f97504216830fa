// Carries loads from one reader past many workers to one writer, in the order in which they came.
//
//     reader --put--> [ load | load | load ] --next--> writer
//                        take, finish
//                          workers
//
// It holds so many loads and bytes at most: the reader waits until the writer has taken one off.
// A worker may put a transaction of a load aside and come back to it: whoever calls resume() with
// it makes take() hand it out, in front of fresh loads.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>

#include "batch_load.h"

namespace quillfence::decision {

struct waiting_transaction;

struct conveyor_bounds {
    size_t loads = 4;
    size_t bytes = size_t{32} << 20; // of their texts; a single load may have more
};

class conveyor {
  public:
    explicit conveyor(conveyor_bounds bounds) : bounds_(bounds) {}

    // --- the reader ---

    // Takes the load, which holds an item at least, over once there is room. False, with the load
    // left alone, when there is none after a tenth of a second, or it was stopped.
    bool put(std::unique_ptr<batch_load> &load);
    // Nothing more will be put.
    void close();

    // --- workers ---

    // One of the two; both null at the end: all is finished, or it was stopped.
    struct work {
        batch_load *load = nullptr;
        std::shared_ptr<waiting_transaction> again{};
    };
    work take();
    // So many items of the load are done.
    void finish(batch_load *load, size_t items);
    void resume(std::shared_ptr<waiting_transaction> transaction);

    // --- the writer ---

    // The oldest load once it is finished; null after a tenth of a second without one, and when
    // is_over().
    std::unique_ptr<batch_load> next();
    // Whether nothing will come any more: all has been taken off, or it was stopped.
    bool is_over() const;
    // When nobody works any more: the oldest load, finished or not; null when there is none.
    std::unique_ptr<batch_load> leftover();

    // --- anybody ---

    void stop();
    bool stopped() const {
        return stopped_;
    }
    // The most that it has held at once.
    size_t most_loads() const;
    size_t most_bytes() const;

  private:
    bool has_room(const batch_load &load) const;
    bool ends() const;
    std::unique_ptr<batch_load> take_off();

    const conveyor_bounds bounds_;
    std::atomic<bool> stopped_ = false;
    mutable std::mutex lock_; // of what follows
    std::condition_variable room_;
    std::condition_variable work_;
    std::condition_variable finished_;
    std::deque<std::unique_ptr<batch_load>> loads_; // the oldest in front
    size_t taken_ = 0;                              // of them, by workers
    std::deque<std::shared_ptr<waiting_transaction>> resumed_;
    size_t bytes_ = 0;
    size_t most_loads_ = 0;
    size_t most_bytes_ = 0;
    bool closed_ = false;
};

} // namespace quillfence::decision
