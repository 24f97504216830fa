// DNS answers for many transactions at once. A transaction is judged with the answers that are at
// hand; each answer that it lacks is missing to it, and is asked for meanwhile. When all of these
// have come it is judged anew, and so on, until it lacks none: thousands may wait for their answers
// while a few threads judge.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "deadline_source.h"
#include "memo_source.h"

namespace quillfence::decision {

// Threads that ask.
class asking_threads {
  public:
    using listener = std::function<void(dns_sources::answer)>;

    // No more threads than that, begun as they are needed; the first one by start(), which throws
    // when there can't be any.
    explicit asking_threads(unsigned most) : most_(most) {}
    ~asking_threads(); // as stop()
    void start();
    asking_threads(const asking_threads &) = delete;
    asking_threads &operator=(const asking_threads &) = delete;

    struct task {
        dns_sources::source *from; // borrowed
        dns_sources::question asked;
        listener then;
    };
    // Asks on one of the threads, and tells the listener there. Throws nothing: without memory the
    // answer's status is 8, and the listener may be told before this returns.
    void ask(task asked);
    // Drops what has not been asked yet, and waits for the rest.
    void stop();

  private:
    bool take_on(task &asked);
    void grow();
    void work();

    const unsigned most_;
    std::mutex lock_; // of what follows
    std::condition_variable wake_;
    std::deque<task> tasks_;
    std::vector<std::thread> threads_;
    unsigned idle_ = 0;
    bool stopped_ = false;
};

// The answers that one transaction has so far: those to each question in the order in which they
// came, as a failure is asked again when the engine asks again. Used by one thread at a time.
class answers_so_far : public dns_sources::source {
  public:
    // What is there in the memo is at hand; the rest is asked through it, within `total` from now.
    answers_so_far(dns_sources::memo_source &memo, std::chrono::milliseconds total)
        : memo_(memo), within_(memo, total) {}

    dns_sources::answer ask(const dns_sources::question &asked) override;

    // Whether an answer was missing since the last rewind().
    bool lacks_answers() const {
        return !wanted_.empty();
    }
    // Asks for all of them. `then` is called once, on the thread that has the last answer, perhaps
    // before this returns; nothing here is touched behind it. Throws before anything was asked.
    void fetch(asking_threads &threads, const std::function<void()> &then);
    // Before the transaction is judged anew.
    void rewind();
    // Before it is judged once more with the answers that are at hand: what it lacks is kept.
    void begin_again();

  private:
    struct asked_question {
        dns_sources::question question;
        std::vector<dns_sources::answer> answers;
        size_t next = 0;
        bool wanted = false;
    };

    dns_sources::memo_source &memo_;
    dns_sources::deadline_source within_;
    std::map<std::pair<std::string, uint16_t>, asked_question> asked_;
    std::vector<asked_question *> wanted_;
    std::atomic<size_t> outstanding_ = 0;
};

} // namespace quillfence::decision
