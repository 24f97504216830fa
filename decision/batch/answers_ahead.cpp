#include "answers_ahead.h"

#include <new>
#include <system_error>
#include <utility>

#include "platform/error_numbers.h"
#include "vc_dns.h"

namespace quillfence::decision {

using dns_sources::answer;
using dns_sources::question;

// --- threads ------------------------------------------------------------------------------------

asking_threads::~asking_threads() {
    stop();
}

void asking_threads::start() {
    const std::lock_guard guard(lock_);
    threads_.emplace_back([this] { work(); });
}

// One more thread; those that are there will do when the system gives none.
void asking_threads::grow() {
    try {
        threads_.emplace_back([this] { work(); });
    } catch (const std::system_error &) {
    } catch (const std::bad_alloc &) {
    }
}

bool asking_threads::take_on(task &asked) {
    const std::lock_guard guard(lock_);
    try {
        tasks_.push_back(std::move(asked));
    } catch (const std::bad_alloc &) {
        return false;
    }
    if (idle_ < tasks_.size() && threads_.size() < most_) {
        grow();
    }
    wake_.notify_one();
    return true;
}

void asking_threads::ask(task asked) {
    if (!take_on(asked)) {
        asked.then(dns_sources::answer_of_status(platform::error_not_enough_memory));
    }
}

static answer answer_of(dns_sources::source &from, const question &asked) {
    try {
        return from.ask(asked);
    } catch (const std::bad_alloc &) {
        return dns_sources::answer_of_status(platform::error_not_enough_memory);
    }
}

void asking_threads::work() {
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
        next.then(answer_of(*next.from, next.asked));
        guard.lock();
    }
}

void asking_threads::stop() {
    {
        const std::lock_guard guard(lock_);
        stopped_ = true;
        tasks_.clear();
    }
    wake_.notify_all();
    for (std::thread &thread : threads_) {
        thread.join();
    }
    threads_.clear();
}

// --- a transaction's answers --------------------------------------------------------------------

// What the engine takes for an answer stays one; a failure is asked again.
static bool is_final(const answer &given) {
    return vc_dns_code(given.status) != vc_dns_failed;
}

answer answers_so_far::ask(const question &asked) {
    asked_question &known = asked_[{dns_sources::name_key(asked.name), asked.type}];
    if (known.next < known.answers.size()) {
        return known.answers[known.next++];
    }
    if (!known.answers.empty() && is_final(known.answers.back())) {
        return known.answers.back();
    }
    if (!known.wanted) {
        if (auto remembered = memo_.known(asked)) {
            known.answers.push_back(std::move(*remembered));
            return known.answers[known.next++];
        }
        known.question = asked;
        known.wanted = true;
        wanted_.push_back(&known);
    }
    return dns_sources::answer_of_status(dns_sources::status_missing);
}

void answers_so_far::fetch(asking_threads &threads, const std::function<void()> &then) {
    std::vector<asking_threads::task> tasks;
    for (asked_question *const one : wanted_) {
        one->answers.reserve(one->answers.size() + 1);
        tasks.push_back({&within_, one->question, [this, one, then](answer given) {
                             one->answers.push_back(std::move(given));
                             if (--outstanding_ == 0) {
                                 then();
                             }
                         }});
    }
    wanted_.clear();
    outstanding_ = tasks.size();
    for (asking_threads::task &one : tasks) {
        threads.ask(std::move(one));
    }
}

void answers_so_far::begin_again() {
    for (auto &[key, known] : asked_) {
        known.next = 0;
    }
}

void answers_so_far::rewind() {
    wanted_.clear();
    for (auto &[key, known] : asked_) {
        known.wanted = false;
    }
    begin_again();
}

} // namespace quillfence::decision
