#include "policy_server.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "input.h"
#include "open_handles.h"
#include "platform/file.h"
#include "platform/observer.h"
#include "policy_client.h"
#include "side_by_side.h"

namespace quillfence::testing {
namespace {

using namespace service;
using namespace std::chrono_literals;
using reply_function = std::function<void(std::string_view)>;

constexpr char dunno[] = "action=DUNNO\n\n";

// What a test makes of the seam's calls, on all threads.
std::atomic<int> accepts_to_fail;
std::atomic<int> accept_calls;
std::atomic<int> calls_until_failure; // of the server's other calls; 0: none fails
thread_local bool is_server;

uint32_t on_call(const char *call, const char *) {
    if (std::string_view(call) == "socket_accept") {
        ++accept_calls;
        if (accepts_to_fail > 0) {
            --accepts_to_fail;
            return platform::error_too_many_open_files;
        }
        return 0;
    }
    const std::string_view name = call;
    const bool is_ours = name.starts_with("socket_") || name.starts_with("watcher_");
    return is_server && is_ours && calls_until_failure > 0 && --calls_until_failure == 0
               ? uint32_t{platform::error_not_enough_memory}
               : 0;
}

// Threads that answer with what they were asked.
class workers {
  public:
    explicit workers(unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            threads_.emplace_back([this] { work(); });
        }
    }
    ~workers() {
        {
            const std::lock_guard guard(lock_);
            over_ = true;
        }
        more_.notify_all();
        for (std::thread &one : threads_) {
            one.join();
        }
    }
    void take(std::string request, reply_function answer) {
        const std::lock_guard guard(lock_);
        waiting_.emplace_back(std::move(request), std::move(answer));
        more_.notify_one();
    }

  private:
    void work() {
        for (std::unique_lock guard(lock_);;) {
            more_.wait(guard, [this] { return over_ || !waiting_.empty(); });
            if (waiting_.empty()) {
                return;
            }
            const auto [request, answer] = std::move(waiting_.front());
            waiting_.pop_front();
            guard.unlock();
            answer(request + "\n");
            guard.lock();
        }
    }

    std::mutex lock_;
    std::condition_variable more_;
    std::deque<std::pair<std::string, reply_function>> waiting_;
    bool over_ = false;
    std::vector<std::thread> threads_;
};

// Keeps what it is asked, for the test to answer.
class kept_requests {
  public:
    void operator()(std::string request, reply_function answer) {
        const std::lock_guard guard(lock_);
        kept_.emplace_back(std::move(request), std::move(answer));
        more_.notify_all();
    }
    reply_function wait_for(size_t number) {
        std::unique_lock guard(lock_);
        EXPECT_TRUE(more_.wait_for(guard, 5s, [&] { return kept_.size() > number; }));
        return kept_.at(number).second;
    }
    size_t count() {
        const std::lock_guard guard(lock_);
        return kept_.size();
    }

  private:
    std::mutex lock_;
    std::condition_variable more_;
    std::vector<std::pair<std::string, reply_function>> kept_;
};

// A server in a thread of its own.
class serving : public ::testing::Test {
  protected:
    serving() {
        accepts_to_fail = accept_calls = calls_until_failure = 0;
        options.count = [this](connection_event what) {
            const std::lock_guard guard(lock);
            ++counted[what];
        };
        options.ready = [this] { is_ready = true; };
        set_event_stand_in([this](event_severity, std::string_view text) {
            const std::lock_guard guard(lock);
            told.emplace_back(text);
        });
        handles = open_handles();
    }
    ~serving() override {
        end();
        set_event_stand_in({});
        platform::set_call_observer(nullptr);
        EXPECT_EQ(open_handles(), handles);
        EXPECT_FALSE(std::filesystem::exists(path));
        std::filesystem::remove_all(folder);
    }

    void serve(request_handler handler) {
        listeners_.emplace();
        ASSERT_EQ(listeners_->open("unix:" + path, 0600), std::nullopt);
        server.emplace(options, std::move(handler));
        thread = std::thread([this] {
            is_server = true;
            EXPECT_EQ(server->run(*listeners_), 0u);
        });
        while (!is_ready) {
            std::this_thread::yield();
        }
    }
    void end() {
        if (server) {
            server->stop();
            thread.join();
        }
        server.reset();
        listeners_.reset();
    }
    int count(connection_event what) {
        const std::lock_guard guard(lock);
        return counted[what];
    }
    bool comes_to(connection_event what, int number) {
        for (int i = 0; i < 500 && count(what) < number; ++i) {
            std::this_thread::sleep_for(10ms);
        }
        return count(what) == number;
    }
    std::vector<std::string> events() {
        const std::lock_guard guard(lock);
        return told;
    }

    const std::filesystem::path folder = [] {
        auto made = std::filesystem::temp_directory_path() /
                    ("quillfence-test-" + std::to_string(std::random_device()()));
        std::filesystem::create_directory(made);
        return made;
    }();
    const std::string path = folder / "policy";
    kept_requests kept;
    std::optional<workers> pool;
    policy_server_options options;
    std::optional<listeners> listeners_;
    std::optional<policy_server> server;
    std::thread thread;
    std::atomic<bool> is_ready = false;
    std::mutex lock; // of what follows
    std::map<connection_event, int> counted;
    std::vector<std::string> told;
    int handles = 0;
};

void say_dunno(const std::string &, const reply_function &answer) {
    answer(dunno);
}

void say_it_back(const std::string &request, const reply_function &answer) {
    answer(request + "\n");
}

std::string request_of(int number) {
    return "instance=" + std::to_string(number) + "\n";
}

// --- requests and replies ---

TEST_F(serving, a_request_in_pieces) {
    serve(say_it_back);
    policy_client client(path);
    for (const char c : std::string("request=smtpd_access_policy\nsender=a@b\n\n")) {
        client.say({&c, 1});
    }
    EXPECT_EQ(client.hear(1), "request=smtpd_access_policy\nsender=a@b\n\n");
    EXPECT_EQ(client.ask("again=1\n\n"), "again=1\n\n");
}

TEST_F(serving, requests_at_once_are_answered_in_order) {
    pool.emplace(4);
    serve([&](std::string request, reply_function answer) {
        pool->take(std::move(request), std::move(answer));
    });
    side_by_side(4, [this](unsigned number) {
        policy_client client(path);
        std::string all;
        for (int i = 0; i < 500; ++i) {
            all += request_of(i * 10 + static_cast<int>(number)) + "\n";
        }
        std::string_view rest = all;
        std::string heard;
        while (!rest.empty()) {
            rest.remove_prefix(client.say(rest.substr(0, 700)));
            heard += client.hear(1);
        }
        while (heard.size() < all.size()) {
            const std::string more = client.hear(1);
            ASSERT_NE(more, "");
            heard += more;
        }
        EXPECT_EQ(heard, all);
    });
}

TEST_F(serving, each_client_waits_for_himself_alone) {
    serve([&](std::string request, reply_function answer) {
        if (request == "slow=1\n") {
            kept(std::move(request), std::move(answer));
        } else {
            answer(dunno);
        }
    });
    policy_client slow(path);
    policy_client other(path);
    slow.say("slow=1\n\nquick=1\n\n");
    const auto answer = kept.wait_for(0);
    EXPECT_EQ(other.ask("quick=1\n\n"), dunno);
    answer("action=OK\n\n");
    EXPECT_EQ(slow.hear(2), std::string("action=OK\n\n") + dunno);
}

TEST_F(serving, what_is_said_while_another_is_judged_waits) {
    serve(std::ref(kept));
    policy_client client(path);
    client.say("a=1\n\na=2\n\n");
    kept.wait_for(0);
    client.say("a=3\n\n");
    std::this_thread::sleep_for(20ms); // it has been seen
    for (size_t i = 0; i < 3; ++i) {
        kept.wait_for(i)(dunno);
        EXPECT_EQ(client.hear(1), dunno);
    }
    client.say("a=4\n\n");
    kept.wait_for(3)(dunno);
    EXPECT_EQ(client.hear(1), dunno);
}

TEST_F(serving, a_second_answer_is_none) {
    serve([](const std::string &request, const reply_function &answer) {
        answer(request + "\n");
        answer("action=REJECT\n\n");
    });
    policy_client client(path);
    EXPECT_EQ(client.ask("a=1\n\n"), "a=1\n\n");
    EXPECT_EQ(client.ask("a=2\n\n"), "a=2\n\n");
}

TEST_F(serving, a_handler_that_throws_costs_the_connection) {
    serve([](const std::string &request, const reply_function &answer) {
        if (request == "bad=1\n") {
            throw std::runtime_error("no");
        }
        answer(dunno);
    });
    policy_client bad(path);
    policy_client good(path);
    bad.say("bad=1\n\n");
    EXPECT_TRUE(bad.is_ended());
    EXPECT_EQ(good.ask("good=1\n\n"), dunno);
}

// --- judged between two turns ---

// The handler keeps what it gets until it is asked to judge.
class judged_between_turns : public serving {
  protected:
    ~judged_between_turns() override {
        end(); // while what judges is there
    }

    judged_between_turns() {
        options.kept = 20ms;
    }
    void take(std::string request, reply_function answer) {
        const std::lock_guard guard(waiting_lock_);
        waiting_.emplace_back(std::move(request), std::move(answer));
    }
    // Answers all; a slow one keeps whoever may be kept, and is left by others.
    void judge(bool here) {
        for (std::unique_lock guard(waiting_lock_); !waiting_.empty();) {
            const auto [request, answer] = std::move(waiting_.front());
            waiting_.pop_front();
            guard.unlock();
            ++(here ? here_ : elsewhere_);
            if (request == "slow=1\n" && here) {
                is_slow_ = true;
                while (is_slow_) {
                    std::this_thread::sleep_for(1ms);
                }
            }
            answer(request + "\n");
            guard.lock();
        }
    }
    void serve_so() {
        options.judge_here = [this](bool here) { judge(here); };
        serve([this](std::string request, reply_function answer) {
            take(std::move(request), std::move(answer));
        });
    }

    std::atomic<bool> is_slow_ = false;
    std::atomic<int> here_ = 0;
    std::atomic<int> elsewhere_ = 0;

  private:
    std::mutex waiting_lock_; // of what follows
    std::deque<std::pair<std::string, reply_function>> waiting_;
};

TEST_F(judged_between_turns, by_the_thread_that_serves) {
    serve_so();
    policy_client client(path);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(client.ask(request_of(i) + "\n"), request_of(i) + "\n");
    }
    EXPECT_GT(here_, 0);
    EXPECT_EQ(here_ + elsewhere_, 20);
}

TEST_F(judged_between_turns, a_slow_one_stops_nobody_else) {
    serve_so();
    policy_client slow(path);
    policy_client quick(path);
    for (int round = 1; round <= 3; ++round) {
        slow.say("slow=1\n\n");
        while (!is_slow_) {
            std::this_thread::yield();
        }
        for (int i = 0; i < 5; ++i) {
            EXPECT_EQ(quick.ask(request_of(i) + "\n"), request_of(i) + "\n");
        }
        policy_client newcomer(path);
        EXPECT_EQ(newcomer.ask("new=1\n\n"), "new=1\n\n");
        EXPECT_GE(elsewhere_, 6 * round);
        is_slow_ = false;
        EXPECT_EQ(slow.hear(1), "slow=1\n\n");
        const int before = here_;
        while (here_ == before) { // the first thread serves again
            EXPECT_EQ(quick.ask("again=1\n\n"), "again=1\n\n");
        }
    }
}

// What else is waited for: a pipe that is written to, and a time that is over.
class with_a_companion : public judged_between_turns {
  protected:
    with_a_companion() {
        EXPECT_EQ(platform::file_pipe(&reader_, &writer_), 0u);
        options.also.descriptor = reader_;
        options.also.send = [this] {
            enter();
            const int wait = until_due();
            leave();
            return wait;
        };
        options.also.take = [this] {
            enter();
            char byte = 0;
            uint32_t moved = 0;
            if (is_written_.exchange(false)) {
                EXPECT_EQ(platform::file_read(reader_, &byte, 1, &moved), 0u);
            }
            ++taken_;
            due_ = clock::now() + period_;
            leave();
        };
    }
    ~with_a_companion() override {
        end(); // while the pipe is there
        platform::file_close(reader_);
        platform::file_close(writer_);
    }
    void write_byte() {
        is_written_ = true;
        uint32_t moved = 0;
        EXPECT_EQ(platform::file_write(writer_, "x", 1, &moved), 0u);
    }
    void wait_for_taken(int count) {
        while (taken_ < count) {
            std::this_thread::sleep_for(1ms);
        }
    }

    std::chrono::milliseconds period_{0}; // 0: its time is never over
    std::atomic<int> taken_ = 0;
    std::atomic<bool> is_together_ = false;

  private:
    using clock = std::chrono::steady_clock;
    int until_due() const {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(due_ - clock::now());
        return period_ == 0ms ? -1 : std::max(static_cast<int>(left.count()), 0);
    }
    void enter() {
        is_together_ = is_together_ || is_inside_.exchange(true);
    }
    void leave() {
        is_inside_ = false;
    }
    platform::file_handle reader_ = platform::invalid_file;
    platform::file_handle writer_ = platform::invalid_file;
    std::atomic<bool> is_written_ = false;
    std::atomic<bool> is_inside_ = false;
    clock::time_point due_ = clock::now(); // of the thread that serves
};

TEST_F(with_a_companion, it_is_taken_from_when_there_is_something) {
    serve_so();
    policy_client client(path);
    EXPECT_EQ(client.ask("a=1\n\n"), "a=1\n\n");
    EXPECT_EQ(taken_, 0) << "nothing was there, and no time was over";
    for (int i = 1; i <= 3; ++i) {
        write_byte();
        wait_for_taken(i);
    }
    EXPECT_EQ(client.ask("a=2\n\n"), "a=2\n\n");
    EXPECT_EQ(taken_, 3);
}

TEST_F(with_a_companion, it_is_taken_from_when_its_time_is_over) {
    period_ = 5ms;
    serve_so();
    wait_for_taken(3); // without a client
    policy_client client(path);
    EXPECT_EQ(client.ask("a=1\n\n"), "a=1\n\n");
    wait_for_taken(6);
}

// Clients that never let it sleep do not keep its time from being over.
TEST_F(with_a_companion, its_time_counts_under_load) {
    period_ = 20ms;
    serve_so();
    policy_client client(path);
    const int before = taken_;
    for (int i = 0; taken_ < before + 3; ++i) {
        ASSERT_EQ(client.ask(request_of(i) + "\n"), request_of(i) + "\n");
    }
}

// Whoever judges waits for it, but not while somebody else waits for him.
class with_a_companion_to_wait_for : public with_a_companion {
  protected:
    // Requests "wait=..." wait for it until the test says so.
    void serve_and_wait() {
        serve([this](std::string request, reply_function answer) {
            const std::lock_guard guard(lock_);
            waiting_.emplace_back(std::move(request), std::move(answer));
        });
    }
    with_a_companion_to_wait_for() {
        options.judge_here = [this](bool here) {
            std::unique_lock guard(lock_);
            while (!waiting_.empty()) {
                const auto [request, answer] = std::move(waiting_.front());
                waiting_.pop_front();
                guard.unlock();
                if (here && request.starts_with("wait=")) {
                    for (is_waiting_ = true; is_waiting_;) {
                        ++(server->await_companion() ? came_ : did_not_);
                    }
                }
                answer(request + "\n");
                guard.lock();
            }
        };
    }
    void begin_to_wait(policy_client &client) {
        client.say("wait=1\n\n");
        while (!is_waiting_) {
            std::this_thread::yield();
        }
    }

    std::atomic<bool> is_waiting_ = false;
    std::atomic<int> came_ = 0;
    std::atomic<int> did_not_ = 0;

  private:
    std::mutex lock_; // of what follows
    std::deque<std::pair<std::string, reply_function>> waiting_;
};

TEST_F(with_a_companion_to_wait_for, it_is_taken_from_meanwhile) {
    options.kept = 1min;
    serve_and_wait();
    policy_client client(path);
    begin_to_wait(client);
    for (int i = 1; i <= 3; ++i) {
        write_byte();
        wait_for_taken(i);
    }
    EXPECT_EQ(did_not_ > 0 || came_ > 0, true);
    is_waiting_ = false;
    EXPECT_EQ(client.hear(1), "wait=1\n\n");
    EXPECT_EQ(came_, 3);
}

// Then it is not waited for, and what he wants is done next.
TEST_F(with_a_companion_to_wait_for, a_client_goes_before_it) {
    options.kept = 1min;
    serve_and_wait();
    policy_client client(path);
    policy_client other(path);
    EXPECT_EQ(other.ask("a=1\n\n"), "a=1\n\n");
    begin_to_wait(client);
    other.say("b=1\n\n");
    const int before = did_not_;
    while (did_not_ < before + 1000) { // at once, once it has seen him
        std::this_thread::yield();
    }
    EXPECT_EQ(taken_, 0);
    is_waiting_ = false;
    EXPECT_EQ(other.hear(1), "b=1\n\n");
    EXPECT_EQ(client.hear(1), "wait=1\n\n");
}

// The wakening is not lost: clients that are connected would keep it asleep for a second.
TEST_F(with_a_companion_to_wait_for, the_end_comes_meanwhile) {
    options.kept = 1min;
    serve_and_wait();
    policy_client client(path);
    begin_to_wait(client);
    server->stop();
    const int before = did_not_;
    while (did_not_ < before + 10) {
        std::this_thread::yield();
    }
    is_waiting_ = false;
    EXPECT_EQ(client.hear(1), "wait=1\n\n");
    EXPECT_TRUE(client.is_ended());
}

TEST_F(with_a_companion, a_slow_judgement_does_not_keep_it) {
    serve_so();
    policy_client slow(path);
    slow.say("slow=1\n\n");
    while (!is_slow_) {
        std::this_thread::yield();
    }
    for (int i = 1; i <= 3; ++i) {
        write_byte();
        wait_for_taken(i);
    }
    is_slow_ = false;
    EXPECT_EQ(slow.hear(1), "slow=1\n\n");
    EXPECT_FALSE(is_together_);
}

TEST_F(judged_between_turns, the_end_comes_meanwhile) {
    options.ending = 50ms;
    serve_so();
    policy_client slow(path);
    policy_client quick(path);
    slow.say("slow=1\n\n");
    while (!is_slow_) {
        std::this_thread::yield();
    }
    EXPECT_EQ(quick.ask("a=1\n\n"), "a=1\n\n");
    server->stop();
    EXPECT_EQ(quick.hear(1), "") << "it is closed by the other thread";
    is_slow_ = false;
    end();
}

// --- bounds ---

TEST_F(serving, one_connection_too_many_is_closed) {
    options.connections = 3;
    serve(say_dunno);
    std::deque<policy_client> clients;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(clients.emplace_back(path).ask("a=b\n\n"), dunno);
    }
    for (int i = 0; i < 100; ++i) {
        policy_client late(path);
        EXPECT_TRUE(late.is_ended());
    }
    EXPECT_TRUE(comes_to(connection_event::refused, 100));
    EXPECT_EQ(count(connection_event::opened), 3);
    EXPECT_EQ(events(), std::vector<std::string>{"A connection was closed at once: there are 3 "
                                                 "already, as many as there may be"});
    clients.pop_back();
    ASSERT_TRUE(comes_to(connection_event::closed, 1));
    EXPECT_EQ(policy_client(path).ask("a=b\n\n"), dunno);
}

TEST_F(serving, what_is_too_long_costs_the_connection) {
    serve(say_dunno);
    std::string lines;
    for (size_t i = 0; i <= decision::most_policy_lines; ++i) {
        lines += "a=b\n";
    }
    std::string text;
    while (text.size() <= decision::longest_policy_request) {
        text += std::string(4000, 'x') + "\n";
    }
    policy_client good(path);
    for (const std::string &request : {std::string(5000, 'x'), lines, text}) {
        policy_client bad(path);
        std::string_view rest = request;
        while (!rest.empty()) {
            const size_t put = bad.say(rest);
            if (put == 0) {
                break;
            }
            rest.remove_prefix(put);
        }
        EXPECT_TRUE(bad.is_ended());
        EXPECT_EQ(good.ask("a=b\n\n"), dunno);
    }
    EXPECT_TRUE(comes_to(connection_event::too_long, 3));
    EXPECT_EQ(events(),
              std::vector<std::string>{"A connection was closed: a line of a request is too long"});
}

TEST_F(serving, a_client_that_says_many_things_at_once_is_not_read_further) {
    options.ending = 50ms;
    serve(std::ref(kept));
    policy_client client(path);
    std::string all; // a megabyte
    for (int i = 0; i < 10'000; ++i) {
        all += "a=" + std::string(100, 'x') + "\n\n";
    }
    std::string_view rest = all;
    for (int without_room = 0; !rest.empty() && without_room < 20;) {
        const size_t put = client.say(rest);
        rest.remove_prefix(put);
        without_room = put == 0 ? without_room + 1 : 0;
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_FALSE(rest.empty());
    EXPECT_EQ(kept.count(), 1u); // and what is judged is one
    kept.wait_for(0)(dunno);
    kept.wait_for(1)(dunno);
    EXPECT_EQ(client.hear(2), std::string(dunno) + dunno);
}

TEST_F(serving, a_client_that_takes_no_replies_is_closed) {
    options.slow = 100ms;
    std::atomic<size_t> judged = 0;
    const std::string reply = "action=" + std::string(10'000, 'x') + "\n\n";
    serve([&](const std::string &, const reply_function &answer) {
        ++judged;
        answer(reply);
    });
    policy_client client(path);
    while (count(connection_event::closed) == 0) {
        if (client.say("a=b\n\na=b\n\na=b\n\n") == 0) {
            std::this_thread::sleep_for(1ms);
        }
    }
    EXPECT_EQ(count(connection_event::bad_end), 1);
    EXPECT_LT(judged * reply.size(), size_t{4} << 20); // what the system holds for it, and one
    EXPECT_EQ(events(), std::vector<std::string>{
                            "A connection was closed: its client does not take the replies"});
    end();
}

TEST_F(serving, a_client_that_takes_his_time_gets_all_replies) {
    const std::string reply = "action=" + std::string(100'000, 'x') + "\n\n";
    serve([&](const std::string &, const reply_function &answer) { answer(reply); });
    policy_client client(path);
    std::string requests;
    for (int i = 0; i < 20; ++i) {
        requests += "a=b\n\n";
    }
    client.say(requests);
    std::this_thread::sleep_for(20ms);
    size_t heard = 0;
    while (heard < 20 * reply.size()) {
        const std::string more = client.hear(1);
        ASSERT_NE(more, "");
        heard += more.size();
    }
    EXPECT_EQ(heard, 20 * reply.size());
    end();
}

TEST_F(serving, a_client_that_asks_nothing_is_closed) {
    options.idle = 300ms;
    serve(say_dunno);
    policy_client silent(path);
    policy_client dripping(path);
    std::thread drips([&] {
        for (int i = 0; i < 100 && count(connection_event::closed) < 2; ++i) {
            dripping.say("a");
            std::this_thread::sleep_for(50ms);
        }
    });
    EXPECT_TRUE(silent.is_ended());
    EXPECT_TRUE(comes_to(connection_event::idle, 2));
    EXPECT_EQ(events(), std::vector<std::string>{});
    drips.join();
}

TEST_F(serving, no_descriptors_for_a_while) {
    platform::set_call_observer(on_call);
    accepts_to_fail = 3;
    serve(say_dunno);
    policy_client client(path);
    EXPECT_EQ(client.ask("a=b\n\n"), dunno);
    // Three that failed, each with a pause behind it, one that took the client, one that found no
    // other.
    EXPECT_LE(accept_calls, 5);
    EXPECT_EQ(events(), std::vector<std::string>{
                            "Connections can't be accepted for now: Too many open files"});
}

// --- endings ---

TEST_F(serving, a_client_that_goes_away) {
    serve(std::ref(kept));
    {
        policy_client client(path);
        client.say("a=b\n\n");
        kept.wait_for(0);
        policy_client within(path);
        within.say("a=b\n");
        policy_client idle(path);
    }
    ASSERT_TRUE(comes_to(connection_event::closed, 2));
    kept.wait_for(0)(dunno);
    ASSERT_TRUE(comes_to(connection_event::closed, 3));
    EXPECT_EQ(count(connection_event::bad_end), 2);
    EXPECT_EQ(server->connections(), 0u);
}

TEST_F(serving, what_is_judged_is_answered_at_the_end) {
    serve(std::ref(kept));
    policy_client judged(path);
    policy_client idle(path);
    judged.say("a=b\n\n");
    const auto answer = kept.wait_for(0);
    server->stop();
    EXPECT_TRUE(idle.is_ended());
    platform::socket_handle refused = platform::invalid_socket;
    EXPECT_NE(platform::connect_local(path.c_str(), &refused), 0u);
    answer(dunno);
    EXPECT_EQ(judged.hear(1), dunno);
    EXPECT_TRUE(judged.is_ended());
    end();
}

TEST_F(serving, what_has_arrived_is_judged_at_the_end) {
    serve(std::ref(kept));
    policy_client judged(path);
    judged.say("a=1\n\na=2\n\n");
    const auto answer = kept.wait_for(0);
    server->stop();
    answer(dunno);
    kept.wait_for(1)(dunno);
    EXPECT_EQ(judged.hear(2), std::string(dunno) + dunno);
    EXPECT_TRUE(judged.is_ended());
    end();
}

TEST_F(serving, the_end_does_not_wait_for_ever) {
    options.ending = 50ms;
    serve(std::ref(kept));
    policy_client client(path);
    client.say("a=b\n\n");
    const auto answer = kept.wait_for(0);
    end();
    EXPECT_TRUE(client.is_ended());
    answer(dunno); // of a server that is gone
}

// Each is read once more, and no client keeps the end away by asking on and on.
TEST_F(serving, who_asks_on_and_on_is_ended) {
    serve(std::ref(kept));
    policy_client client(path);
    policy_client idle(path);
    client.say("a=1\n\n");
    const auto first = kept.wait_for(0);
    server->stop();
    EXPECT_TRUE(idle.is_ended());
    client.say("a=2\n\n");
    first(dunno);
    const auto second = kept.wait_for(1);
    client.say("a=3\n\n");
    second(dunno);
    EXPECT_EQ(client.hear(2), std::string(dunno) + dunno);
    EXPECT_TRUE(client.is_ended());
    end();
    EXPECT_EQ(kept.count(), 2u);
}

TEST_F(serving, who_waits_for_too_long_is_given_up_with_an_answer) {
    options.ending = 50ms;
    std::atomic<int> given_up = 0;
    options.give_up = [&] {
        ++given_up;
        kept.wait_for(0)(dunno);
    };
    serve([&](std::string request, reply_function answer) {
        if (given_up) {
            answer(dunno);
        } else {
            kept(std::move(request), std::move(answer));
        }
    });
    policy_client client(path);
    client.say("a=1\n\na=2\n\n");
    kept.wait_for(0);
    end();
    EXPECT_EQ(client.hear(2), std::string(dunno) + dunno);
    EXPECT_TRUE(client.is_ended());
    EXPECT_EQ(given_up, 1);
    EXPECT_EQ(kept.count(), 1u);
}

// --- what the system refuses ---

TEST_F(serving, any_call_may_fail_once) {
    platform::set_call_observer(on_call);
    serve(say_dunno);
    int failed = 0;
    for (int n = 1; n <= 12; ++n) {
        calls_until_failure = n;
        for (int i = 0; i < 3; ++i) {
            policy_client client(path);
            failed += client.ask("a=b\n\n") != dunno;
        }
    }
    calls_until_failure = 0;
    EXPECT_GT(failed, 0);
    EXPECT_EQ(policy_client(path).ask("a=b\n\n"), dunno);
}

// --- many at once ---

TEST_F(serving, many_clients_and_threads) {
    pool.emplace(3);
    serve([&](std::string request, reply_function answer) {
        pool->take(std::move(request), std::move(answer));
    });
    side_by_side(8, [this](unsigned number) {
        for (int round = 0; round < 10; ++round) {
            policy_client client(path);
            for (int i = 0; i < 20; ++i) {
                const std::string request = request_of(static_cast<int>(number) * 1000 + i) + "\n";
                EXPECT_EQ(client.ask(request), request);
            }
            if (round % 2) {
                client.say("and=gone\n\n");
            }
        }
    });
    EXPECT_TRUE(comes_to(connection_event::closed, 80));
    EXPECT_EQ(events(), std::vector<std::string>{});
}

} // namespace
} // namespace quillfence::testing
