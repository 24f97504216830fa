// The requests that a policy_judge has taken and not answered: all of them by their age, and those
// that a worker shall look at. Neither asks for memory: a request holds its own places. Both are
// used under the judge's lock.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "answers_so_far.h"
#include "input.h"
#include "live_configuration.h"
#include "policy_judge.h"

namespace quillfence::service {

// What is on its way. The judge owns it as long as it is outstanding; a DNS question that it waits
// for does, too.
struct request {
    std::string text;
    policy_judge::answer_function answer;
    uint64_t number = 0; // of the process, from 1
    policy_judge_options::clock::time_point came{};
    std::atomic<bool> taken = false; // by whoever answers it

    // When it has been read.
    std::optional<decision::input_transaction> input{};
    std::shared_ptr<const loaded_tree> tree{};
    std::optional<decision::answers_so_far> answers{};

    // Its places, under the judge's lock.
    std::shared_ptr<request> self{}; // while it is outstanding
    request *older = nullptr;
    request *younger = nullptr;
    request *next = nullptr; // in the queue

    // Whether the caller is the one to answer it. Once true.
    bool take() {
        return !taken.exchange(true);
    }
};
using request_ptr = std::shared_ptr<request>;

// Requests that have not been answered, the oldest in front. No memory is asked for.
class outstanding_requests {
  public:
    void add(request_ptr one) {
        request *const added = one.get();
        added->self = std::move(one);
        added->older = youngest_;
        (youngest_ ? youngest_->younger : oldest_) = added;
        youngest_ = added;
        ++count_;
    }
    // Its owner from now on is the caller; null when it was not here.
    request_ptr remove(request *one) {
        if (!one->self) {
            return nullptr;
        }
        (one->older ? one->older->younger : oldest_) = one->younger;
        (one->younger ? one->younger->older : youngest_) = one->older;
        one->older = one->younger = nullptr;
        --count_;
        return std::move(one->self);
    }
    request *oldest() const {
        return oldest_;
    }
    size_t count() const {
        return count_;
    }

  private:
    request *oldest_ = nullptr;
    request *youngest_ = nullptr;
    size_t count_ = 0;
};

// Those that a worker shall look at, in the order in which they came or came back.
class request_queue {
  public:
    void put(request *one) {
        one->next = nullptr;
        (last_ ? last_->next : first_) = one;
        last_ = one;
        ++count_;
    }
    request *take() {
        request *const one = first_;
        if (one) {
            first_ = one->next;
            last_ = first_ ? last_ : nullptr;
            --count_;
        }
        return one;
    }
    bool empty() const {
        return !first_;
    }
    size_t count() const {
        return count_;
    }

  private:
    size_t count_ = 0;
    request *first_ = nullptr;
    request *last_ = nullptr;
};

} // namespace quillfence::service
