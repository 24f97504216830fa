// Asks a source, each question on a thread of its own while it is on its way.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "asker.h"
#include "source.h"
#include "time_left.h"

namespace quillfence::dns_sources {

class pool_asker : public asker {
  public:
    // Borrows the source. No more threads than that, begun as they are needed.
    pool_asker(source &from, unsigned most) : from_(from), most_(most) {}
    ~pool_asker() override; // as stop()

    // Begins the first thread: whether there can be one.
    bool start();
    void ask(const question &asked, listener then) noexcept override;
    // What has not been asked yet is missing, and so is what is asked from now on; waits for what
    // the source is being asked.
    void stop();

  private:
    struct task {
        question asked;
        std::optional<time_left> left{}; // of its limit
        listener then;
    };
    bool take_on(const question &asked, listener &then);
    bool grow();
    answer answer_to(task &next) const;
    void work();

    source &from_;
    const unsigned most_;
    std::mutex lock_; // of what follows
    std::condition_variable wake_;
    std::deque<task> tasks_;
    std::vector<std::thread> threads_;
    size_t idle_ = 0;
    bool stopped_ = false;
};

} // namespace quillfence::dns_sources
