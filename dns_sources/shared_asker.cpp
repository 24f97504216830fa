#include "shared_asker.h"

#include <algorithm>
#include <condition_variable>
#include <list>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>

#include "platform/error_numbers.h"
#include "time_left.h"

namespace quillfence::dns_sources {

namespace {

using moment = time_left::clock::time_point;

// A question whose limit has ended it may end a little before it.
constexpr std::chrono::milliseconds grace{20};

struct listening {
    asker::listener then;
    moment end = moment::max();
};

using listeners = std::list<listening>;

// A question that is on its way.
struct flight {
    question asked;
    moment end = moment::max();
    listeners all{};
};

using flight_key = std::tuple<std::string, uint16_t, uint32_t>;

flight_key key_of(const question &asked) {
    return {name_key(asked.name), asked.type, asked.options};
}

moment end_of(const question &asked) {
    return asked.limit ? time_left::clock::now() + *asked.limit : moment::max();
}

void tell(listeners &all, const answer &got) {
    for (listening &one : all) {
        answer copy;
        try {
            copy = got;
        } catch (const std::bad_alloc &) {
            copy = answer_of_status(platform::error_not_enough_memory);
        }
        one.then(std::move(copy));
    }
    all.clear();
}

} // namespace

// It lives as long as somebody may still come with an answer.
struct shared_asker::flights : std::enable_shared_from_this<flights> {
    explicit flights(asker &asks) : next(asks) {}

    using on_their_way = std::map<flight_key, std::shared_ptr<flight>>;

    void ask(const question &asked, listeners &one);
    bool join(const flight_key &key, listeners &one);
    void send(const flight_key &key, const std::shared_ptr<flight> &one);
    void come(const flight_key &key, const std::shared_ptr<flight> &one, const answer &got);
    void ask_again(const flight_key &key, const std::shared_ptr<flight> &one, listeners &patient);
    void tell_now(std::unique_lock<std::mutex> &guard, listeners &all, const answer &got);
    moment take_impatient(listeners *to);
    void watch();
    void stop();

    asker &next;
    std::mutex lock; // of what follows, and of each flight's listeners
    std::condition_variable change;
    on_their_way all;
    moment soonest = moment::max(); // when one of them may have no time left before its flight
    unsigned telling = 0;           // threads that call a listener
    bool stopped = false;
    std::thread watcher;
};

// Whether somebody has asked the same.
bool shared_asker::flights::join(const flight_key &key, listeners &one) {
    const auto same = all.find(key);
    if (same == all.end()) {
        return false;
    }
    const moment end = one.front().end;
    if (end < same->second->end && end < soonest) {
        soonest = end;
        change.notify_all();
    }
    same->second->all.splice(same->second->all.end(), one);
    return true;
}

void shared_asker::flights::ask(const question &asked, listeners &one) {
    const flight_key key = key_of(asked);
    std::shared_ptr<flight> fresh;
    {
        std::unique_lock guard(lock);
        if (stopped) {
            tell_now(guard, one, answer_of_status(status_missing));
            return;
        }
        if (join(key, one)) {
            return;
        }
        fresh = std::make_shared<flight>(flight{asked, one.front().end});
        all.emplace(key, fresh);
        fresh->all.splice(fresh->all.end(), one);
    }
    send(key, fresh);
}

void shared_asker::flights::send(const flight_key &key, const std::shared_ptr<flight> &one) {
    listener then;
    try {
        then = [self = shared_from_this(), key, one](const answer &got) {
            self->come(key, one, got);
        };
    } catch (const std::bad_alloc &) {
        come(key, one, answer_of_status(platform::error_not_enough_memory));
        return;
    }
    next.ask(one->asked, std::move(then));
}

// Without the lock, but stop() waits.
void shared_asker::flights::tell_now(std::unique_lock<std::mutex> &guard, listeners &told,
                                     const answer &got) {
    ++telling;
    guard.unlock();
    tell(told, got);
    guard.lock();
    --telling;
    if (stopped) {
        change.notify_all(); // nobody else waits for it
    }
}

void shared_asker::flights::come(const flight_key &key, const std::shared_ptr<flight> &one,
                                 const answer &got) {
    listeners patient;
    {
        std::unique_lock guard(lock);
        if (stopped) {
            return;
        }
        all.erase(key);
        listeners told;
        const bool ended_by_limit = got.status == platform::dns_status_timeout &&
                                    time_left::clock::now() + grace >= one->end;
        for (auto place = one->all.begin(); place != one->all.end();) {
            listeners &to = ended_by_limit && place->end > one->end + grace ? patient : told;
            to.splice(to.end(), one->all, place++);
        }
        tell_now(guard, told, got);
    }
    if (!patient.empty()) {
        ask_again(key, one, patient);
    }
}

// For those with more time than the one that was asked for.
void shared_asker::flights::ask_again(const flight_key &key, const std::shared_ptr<flight> &one,
                                      listeners &patient) {
    using std::chrono::milliseconds;
    one->end = std::max_element(patient.begin(), patient.end(), [](const auto &a, const auto &b) {
                   return a.end < b.end;
               })->end;
    one->asked.limit.reset();
    const moment now = time_left::clock::now();
    if (one->end != moment::max()) {
        one->asked.limit = std::max(std::chrono::floor<milliseconds>(one->end - now), {});
    }
    {
        std::unique_lock guard(lock);
        if (stopped) {
            tell_now(guard, patient, answer_of_status(status_missing));
            return;
        }
        if (join(key, patient)) { // somebody was faster
            return;
        }
        for (const listening &each : patient) {
            soonest = std::min(soonest, each.end);
        }
        change.notify_all();
        one->all.splice(one->all.end(), patient);
        try {
            all.emplace(key, one);
        } catch (const std::bad_alloc &) {
            tell_now(guard, one->all, answer_of_status(platform::error_not_enough_memory));
            return;
        }
    }
    send(key, one);
}

// Takes off those that have no time left, but for the last ones of a flight, which its own limit
// ends. When to look again.
moment shared_asker::flights::take_impatient(listeners *to) {
    const moment now = time_left::clock::now();
    moment first = moment::max();
    for (auto &[key, one] : all) {
        for (auto place = one->all.begin(); place != one->all.end();) {
            const auto each = place++;
            if (each->end >= one->end) {
                continue;
            }
            if (each->end <= now) {
                to->splice(to->end(), one->all, each);
            } else {
                first = std::min(first, each->end);
            }
        }
    }
    return first;
}

void shared_asker::flights::watch() {
    std::unique_lock guard(lock);
    while (!stopped) {
        if (soonest == moment::max()) {
            change.wait(guard);
        } else {
            change.wait_until(guard, soonest);
        }
        if (stopped || time_left::clock::now() < soonest) {
            continue;
        }
        listeners late;
        soonest = take_impatient(&late);
        if (!late.empty()) {
            tell_now(guard, late, answer_of_status(platform::dns_status_timeout));
        }
    }
}

void shared_asker::flights::stop() {
    listeners left;
    {
        std::unique_lock guard(lock);
        stopped = true;
        change.notify_all();
        change.wait(guard, [this] { return telling == 0; });
        for (auto &[key, one] : all) {
            left.splice(left.end(), one->all);
        }
        all.clear();
    }
    if (watcher.joinable()) {
        watcher.join();
    }
    tell(left, answer_of_status(status_missing));
}

shared_asker::shared_asker(asker &next) : flights_(std::make_shared<flights>(next)) {
    flights_->watcher = std::thread([all = flights_.get()] { all->watch(); });
}

shared_asker::~shared_asker() {
    stop();
}

void shared_asker::ask(const question &asked, listener then) noexcept {
    listeners one;
    try {
        one.emplace_back();
        one.front().end = end_of(asked);
        one.front().then = std::move(then);
        flights_->ask(asked, one);
    } catch (const std::bad_alloc &) {
        const auto no_memory = answer_of_status(platform::error_not_enough_memory);
        if (one.empty()) {
            then(no_memory);
        } else {
            tell(one, no_memory);
        }
    }
}

void shared_asker::stop() {
    flights_->stop();
}

} // namespace quillfence::dns_sources
