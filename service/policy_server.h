// Serves mail servers by Postfix's policy delegation protocol: takes connections and requests, and
// sends the replies. It knows nothing of what is in them. One thread waits for all of them.
//
// That thread may judge, too, between two turns (options.judge_here): a single request then costs
// no change of threads. When it does not come back from there, another thread takes its place until
// it does, so that a judgement that is slow, or a disk that does not answer, stops nobody else.
//
// What else a judgement waits for (options.also: the DNS) it can see to as well, so that an answer
// that comes costs no change of threads either.
//
// What a client can cost: of connections there are so many; each holds one request that is judged,
// one that is not whole and what was read in one go behind them (80 KiB together) and one reply. A
// client that ends costs its judgement, whose reply goes nowhere. What is told of clients, is told
// once a minute for each kind.
//
// Kept on purpose: the time that a client has for his next request does not begin anew with each
// byte, so that nobody keeps a connection by sending one every minute.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "connection.h"
#include "connection_event.h"
#include "event.h"
#include "listeners.h"

namespace quillfence::service {

// What else the thread that serves waits for in its turns. Never called by two threads at once.
struct companion {
    intptr_t descriptor = -1;     // readable when there is something to take; -1: there is none
    std::function<int()> send{};  // before each wait: for how many milliseconds it may last, or -1
    std::function<void()> take{}; // when it is readable, or has waited for so long
};

struct policy_server_options {
    size_t connections = 1000;                                   // one more is closed at once
    std::chrono::milliseconds idle = std::chrono::seconds(600);  // without a request or its answer
    std::chrono::milliseconds slow = std::chrono::seconds(30);   // without taking a reply
    std::chrono::milliseconds ending = std::chrono::seconds(10); // at the end, for what is judged
    // After each turn, in which requests may have been handed over. `here`: the caller may judge,
    // and is waited for; else he must not be kept. Never by two threads at once with the same
    // value.
    std::function<void(bool here)> judge_here{};
    std::chrono::milliseconds kept = std::chrono::milliseconds(500); // there, until another serves
    companion also{};
    std::function<void()> ready{};    // connections are taken from now on
    std::function<void()> reopen{};   // a hang-up came (platform/service_signals.h)
    std::function<void()> stopping{}; // none is taken any more
    // `ending` is over: what is still judged is answered by this call, and whatever is handed over
    // from then on at once.
    std::function<void()> give_up{};
    std::function<void(connection_event)> count{}; // never by two threads at once
};

class policy_server {
  public:
    using handler = request_handler;
    // Both are called as long as run() does, `judge` never by two threads at once.
    policy_server(policy_server_options options, handler judge);
    ~policy_server();
    policy_server(const policy_server &) = delete;
    policy_server &operator=(const policy_server &) = delete;

    // Serves until stop(), or an interruption is noted (platform/interruption.h). Then nothing is
    // accepted any more and the listeners are closed; whoever is being judged gets his answer
    // within options.ending, or by options.give_up; what had arrived counts: each connection is
    // read once more. 0, or a Win32 error number when there is no way to wait, or no thread.
    uint32_t run(listeners &from);
    // Safe from any thread and in a signal's handler, before run() as well.
    void stop();

    // For whoever judges by options.judge_here(true), and lacks something that the companion may
    // bring soon. Waits for it, a millisecond at most, and no longer than until a client wants
    // something. Whether something was taken from it; false at once when others wait already.
    bool await_companion();

    // For whoever runs it.
    size_t connections() const {
        return connections_.size();
    }

  private:
    using clock = connection::clock;
    using shared = std::shared_ptr<connection>;

    void lead(listeners &from);
    void stand_by(listeners &from);
    void stand_in(listeners &from);
    bool is_kept() const;
    void take_turn(listeners &from);
    int begin_wait();
    int wait_for_all();
    void end_wait();
    void try_turn(listeners &from);
    void forget_all();
    bool watch_all(const listeners &from);
    int patience() const;
    void look(const platform::watched_event &event);
    void look_at_signals();
    void accept_from(const listener &from);
    bool accept_one(const listener &from);
    void add(platform::socket_handle socket);
    void pause_listening(uint32_t error);
    void resume_listening();
    void serve(const shared &one, bool readable);
    void wait_for(const shared &one, connection_state what);
    void watch_or_end(const shared &one, bool for_room);
    void wait_for_answer(const shared &one);
    bool watch(connection &one, bool for_room);
    void unwatch(connection &one);
    void end(const shared &one, connection_state why);
    void count(connection_event what) const;
    void end_old_ones();
    void end_old(const shared &one);
    void begin_to_end(listeners &from);
    bool is_to_be_read(const connection &one) const;
    void serve_waiting();
    void give_up();
    void unwatch_signals();
    bool is_over() const;

    const policy_server_options options_;
    const handler judge_;
    platform::watcher *const watcher_;
    const std::shared_ptr<attention_list> attention_;
    std::atomic<bool> stop_ = false;

    // The thread that leads judges since then (of its clock; 0: it does not), and the other one is
    // in its place.
    std::atomic<clock::rep> judges_since_ = 0;
    std::atomic<bool> stands_in_ = false;
    std::mutex by_lock_; // of what follows
    std::condition_variable by_;
    bool is_over_ = false;

    std::mutex turns_; // of what follows: whoever has it serves
    std::vector<listener> listening_;
    std::unordered_map<const void *, shared> connections_; // by their tags
    std::vector<shared> ended_; // still named by events that were taken and not looked at
    clock::time_point now_{};
    clock::time_point companion_due_ = clock::time_point::max();
    clock::time_point paused_until_{}; // listening
    bool is_paused_ = false;
    bool is_alone_ = false;      // there was one event at most
    bool is_woken_ = false;      // outside a turn
    clock::time_point looked_{}; // for old ones
    clock::time_point end_by_{};
    bool is_ending_ = false;

    event_limiter refused_;
    event_limiter no_descriptors_;
    event_limiter too_long_;
    event_limiter slow_;
    event_limiter failed_;
};

} // namespace quillfence::service
