#include "conveyor.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace quillfence::decision {

// How long a reader or writer waits at most before it may look at something else.
static constexpr std::chrono::milliseconds patience{100};

// --- the reader ---

bool conveyor::has_room(const batch_load &load) const {
    return loads_.empty() ||
           (loads_.size() < bounds_.loads && bytes_ + load.text.size() <= bounds_.bytes);
}

bool conveyor::put(std::unique_ptr<batch_load> &load) {
    std::unique_lock guard(lock_);
    const bool room = room_.wait_for(guard, patience, [&] { return stopped_ || has_room(*load); });
    if (!room || stopped_) {
        return false;
    }
    load->open_items = load->items.size();
    bytes_ += load->text.size();
    loads_.push_back(std::move(load));
    most_loads_ = std::max(most_loads_, loads_.size());
    most_bytes_ = std::max(most_bytes_, bytes_);
    work_.notify_one();
    return true;
}

void conveyor::close() {
    const std::lock_guard guard(lock_);
    closed_ = true;
    work_.notify_all();
    finished_.notify_all();
}

// --- workers ---

// Loads leave as soon as they are finished: none is left when all are.
bool conveyor::ends() const {
    return stopped_ || (closed_ && loads_.empty());
}

conveyor::work conveyor::take() {
    std::unique_lock guard(lock_);
    work_.wait(guard, [this] { return ends() || !resumed_.empty() || taken_ < loads_.size(); });
    if (stopped_) {
        return {};
    }
    if (!resumed_.empty()) {
        work next{nullptr, std::move(resumed_.front())};
        resumed_.pop_front();
        return next;
    }
    return taken_ < loads_.size() ? work{loads_[taken_++].get()} : work{};
}

void conveyor::finish(batch_load *load, size_t items) {
    if (load->open_items.fetch_sub(items) != items) {
        return;
    }
    const std::lock_guard guard(lock_);
    load->finished = true;
    if (load == loads_.front().get()) {
        finished_.notify_one();
    }
}

void conveyor::resume(std::shared_ptr<waiting_transaction> transaction) {
    const std::lock_guard guard(lock_);
    resumed_.push_back(std::move(transaction));
    work_.notify_one();
}

// --- the writer ---

std::unique_ptr<batch_load> conveyor::take_off() {
    std::unique_ptr<batch_load> oldest = std::move(loads_.front());
    loads_.pop_front();
    taken_ -= taken_ > 0; // else it was stopped before anybody took it
    bytes_ -= oldest->text.size();
    room_.notify_one();
    if (closed_ && loads_.empty()) {
        work_.notify_all();
    }
    return oldest;
}

std::unique_ptr<batch_load> conveyor::next() {
    std::unique_lock guard(lock_);
    finished_.wait_for(guard, patience,
                       [this] { return ends() || (!loads_.empty() && loads_.front()->finished); });
    return !loads_.empty() && loads_.front()->finished ? take_off() : nullptr;
}

bool conveyor::is_over() const {
    const std::lock_guard guard(lock_);
    return ends();
}

std::unique_ptr<batch_load> conveyor::leftover() {
    const std::lock_guard guard(lock_);
    return loads_.empty() ? nullptr : take_off();
}

// --- anybody ---

void conveyor::stop() {
    const std::lock_guard guard(lock_);
    stopped_ = true;
    room_.notify_all();
    work_.notify_all();
    finished_.notify_all();
}

size_t conveyor::most_loads() const {
    const std::lock_guard guard(lock_);
    return most_loads_;
}

size_t conveyor::most_bytes() const {
    const std::lock_guard guard(lock_);
    return most_bytes_;
}

} // namespace quillfence::decision
