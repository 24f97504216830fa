#include "pool_asker.h"

#include <new>
#include <system_error>
#include <utility>

#include "platform/error_numbers.h"

namespace quillfence::dns_sources {

pool_asker::~pool_asker() {
    stop();
}

bool pool_asker::start() {
    const std::lock_guard guard(lock_);
    return grow();
}

// One more thread; those that are there will do when the system gives none.
bool pool_asker::grow() {
    try {
        threads_.emplace_back([this] { work(); });
        return true;
    } catch (const std::system_error &) {
        return false;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

// Whether the listener was taken over.
bool pool_asker::take_on(const question &asked, listener &then) {
    const std::lock_guard guard(lock_);
    if (stopped_) {
        return false;
    }
    task &added = tasks_.emplace_back();
    try {
        added.asked = asked;
    } catch (...) {
        tasks_.pop_back();
        throw;
    }
    if (asked.limit) {
        added.left.emplace(*asked.limit);
    }
    added.then = std::move(then);
    if (idle_ < tasks_.size() && threads_.size() < most_) {
        grow();
    }
    if (threads_.empty()) { // nobody would ask it
        then = std::move(added.then);
        tasks_.pop_back();
        throw std::bad_alloc();
    }
    wake_.notify_one();
    return true;
}

void pool_asker::ask(const question &asked, listener then) noexcept {
    uint32_t status = status_missing;
    try {
        if (take_on(asked, then)) {
            return;
        }
    } catch (const std::bad_alloc &) {
        status = platform::error_not_enough_memory;
    }
    then(answer_of_status(status));
}

// The time that it has waited is taken from its limit.
answer pool_asker::answer_to(task &next) const {
    if (next.left) {
        next.asked.limit =
            next.left->limit_of(next.asked).value_or(std::chrono::milliseconds::zero());
    }
    try {
        return from_.ask(next.asked);
    } catch (const std::bad_alloc &) {
        return answer_of_status(platform::error_not_enough_memory);
    }
}

void pool_asker::work() {
    std::unique_lock guard(lock_);
    for (;;) {
        ++idle_;
        wake_.wait(guard, [this] { return stopped_ || !tasks_.empty(); });
        --idle_;
        if (stopped_) {
            return;
        }
        task next = std::move(tasks_.front());
        tasks_.pop_front();
        guard.unlock();
        next.then(answer_to(next));
        next = {};
        guard.lock();
    }
}

void pool_asker::stop() {
    std::deque<task> left;
    std::vector<std::thread> threads;
    {
        const std::lock_guard guard(lock_);
        stopped_ = true;
        left.swap(tasks_);
        threads.swap(threads_);
    }
    wake_.notify_all();
    for (task &one : left) {
        one.then(answer_of_status(status_missing));
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

} // namespace quillfence::dns_sources
