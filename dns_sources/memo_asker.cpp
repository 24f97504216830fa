#include "memo_asker.h"

#include <condition_variable>
#include <list>
#include <mutex>
#include <new>
#include <optional>
#include <utility>

#include "platform/error_numbers.h"
#include "time_left.h"

namespace quillfence::dns_sources {

// It lives as long as somebody may still come with an answer.
struct memo_asker::line : std::enable_shared_from_this<line> {
    struct entry {
        question asked;
        std::optional<time_left> left{}; // of its limit
        listener then{};
    };
    using entries = std::list<entry>;

    line(memo_source &memory, asker &asks, unsigned at_once)
        : memo(memory), next(asks), most(at_once) {}

    void add(entries one);
    void go_on();
    void send(entries::iterator one);
    void come(entries::iterator one, answer got);
    void tell(std::unique_lock<std::mutex> &guard, entries::iterator one, answer got);
    void stop();

    memo_source &memo;
    asker &next;
    const unsigned most;
    std::mutex lock; // of what follows
    std::condition_variable quiet;
    entries waiting;
    entries on_their_way;
    unsigned telling = 0; // threads that call a listener
    bool going_on = false;
    bool stopped = false;
};

void memo_asker::line::add(entries one) {
    std::unique_lock guard(lock);
    if (stopped) {
        guard.unlock();
        one.front().then(answer_of_status(status_missing));
        return;
    }
    waiting.splice(waiting.end(), one);
    guard.unlock();
    go_on();
}

// Sends as many as may be on their way. One thread does it for all, so that a listener which is
// told at once does not come here again and again.
void memo_asker::line::go_on() {
    std::unique_lock guard(lock);
    if (going_on) {
        return;
    }
    going_on = true;
    while (!stopped && !waiting.empty() && on_their_way.size() < most) {
        const auto one = waiting.begin();
        on_their_way.splice(on_their_way.end(), waiting, one);
        guard.unlock();
        send(one);
        guard.lock();
    }
    going_on = false;
    quiet.notify_all();
}

void memo_asker::line::send(entries::iterator one) {
    std::optional<answer> at_hand;
    listener then;
    question asked;
    try {
        at_hand = memo.known(one->asked);
        asked = one->asked;
        then = [self = shared_from_this(), one](answer got) { self->come(one, std::move(got)); };
    } catch (const std::bad_alloc &) {
        at_hand = answer_of_status(platform::error_not_enough_memory);
    }
    if (!at_hand && one->left && !(asked.limit = one->left->limit_of(asked))) {
        at_hand = answer_of_status(platform::dns_status_timeout);
    }
    if (!at_hand) {
        next.ask(asked, std::move(then));
        return;
    }
    std::unique_lock guard(lock);
    tell(guard, one, std::move(*at_hand));
}

// An answer. Once it is stopped there is no such question any more.
void memo_asker::line::come(entries::iterator one, answer got) {
    {
        std::unique_lock guard(lock);
        if (stopped) {
            return;
        }
        ++telling; // stop() waits
        guard.unlock();
        try {
            memo.learn(one->asked, got);
        } catch (const std::bad_alloc &) {
            got = answer_of_status(platform::error_not_enough_memory);
        }
        guard.lock();
        --telling;
        tell(guard, one, std::move(got));
    }
    go_on();
}

void memo_asker::line::tell(std::unique_lock<std::mutex> &guard, entries::iterator one,
                            answer got) {
    entries told;
    told.splice(told.end(), on_their_way, one);
    ++telling;
    guard.unlock();
    told.front().then(std::move(got));
    told.clear();
    guard.lock();
    --telling;
    quiet.notify_all();
}

void memo_asker::line::stop() {
    entries all;
    {
        std::unique_lock guard(lock);
        stopped = true;
        quiet.wait(guard, [this] { return !going_on && telling == 0; });
        all.splice(all.end(), waiting);
        all.splice(all.end(), on_their_way);
    }
    for (entry &one : all) {
        one.then(answer_of_status(status_missing));
    }
}

memo_asker::memo_asker(memo_source &memo, asker &next, unsigned most)
    : line_(std::make_shared<line>(memo, next, most)) {}

memo_asker::~memo_asker() {
    stop();
}

void memo_asker::ask(const question &asked, listener then) noexcept {
    line::entries one;
    try {
        one.push_back({asked});
    } catch (const std::bad_alloc &) {
        then(answer_of_status(platform::error_not_enough_memory));
        return;
    }
    if (asked.limit) {
        one.front().left.emplace(*asked.limit);
    }
    one.front().then = std::move(then);
    line_->add(std::move(one));
}

void memo_asker::stop() {
    line_->stop();
}

} // namespace quillfence::dns_sources
