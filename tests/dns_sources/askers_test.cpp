// Questions whose answers come later: each asker by itself, and how they end. Runs under the thread
// sanitizer, too.
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "checked_asker.h"
#include "heard.h"
#include "live_asker.h"
#include "memo_asker.h"
#include "off_source.h"
#include "pool_asker.h"
#include "scripted_source.h"
#include "shared_asker.h"

namespace quillfence::testing {
namespace {

using namespace std::chrono_literals;
using dns_sources::asker;
using dns_sources::status_missing;

// Keeps what it was asked, and answers when the test says so.
class scripted_asker : public asker {
  public:
    void ask(const question &asked, listener then) noexcept override {
        const std::lock_guard guard(lock_);
        asked_.push_back(asked);
        listeners_.push_back(std::move(then));
        ++count_;
    }
    size_t count() const {
        return count_;
    }
    question asked(size_t i) {
        const std::lock_guard guard(lock_);
        return asked_.at(i);
    }
    void tell(size_t i, const answer &got) {
        listener then;
        {
            const std::lock_guard guard(lock_);
            then = std::exchange(listeners_.at(i), nullptr);
        }
        then(got);
    }

  private:
    std::mutex lock_;
    std::vector<question> asked_;
    std::vector<listener> listeners_;
    std::atomic<size_t> count_ = 0;
};

question limited(const std::string &name, std::chrono::milliseconds limit) {
    question asked = ask_for(name);
    asked.limit = limit;
    return asked;
}

// --- pool_asker ---

TEST(pool_asker, asks_on_no_more_threads_than_it_may) {
    std::atomic<int> now = 0;
    std::atomic<int> most = 0;
    scripted_source slow([&](const question &) {
        int at_once = ++now;
        for (int seen = most; seen < at_once && !most.compare_exchange_weak(seen, at_once);) {
        }
        std::this_thread::sleep_for(1ms);
        --now;
        return found({"A 192.0.2.1"});
    });
    heard all;
    dns_sources::pool_asker pool(slow, 4);
    ASSERT_TRUE(pool.start());
    for (int i = 0; i < 100; ++i) {
        pool.ask(ask_for("a.example."), all.listener());
    }
    for (const answer &got : all.wait(100)) {
        EXPECT_EQ(got, found({"A 192.0.2.1"}));
    }
    EXPECT_LE(most, 4);
    EXPECT_GT(most, 1);
}

TEST(pool_asker, waiting_is_taken_from_the_limit) {
    scripted_source slow([&](const question &) {
        std::this_thread::sleep_for(30ms);
        return found({"A 192.0.2.1"});
    });
    heard all;
    dns_sources::pool_asker pool(slow, 1);
    ASSERT_TRUE(pool.start());
    pool.ask(ask_for("first.example."), all.listener());
    pool.ask(limited("second.example.", 1000ms), all.listener());
    pool.ask(limited("third.example.", 5ms), all.listener());
    all.wait(3);
    EXPECT_EQ(slow.last().limit, 0ms);
    EXPECT_EQ(slow.last().name, "third.example.");
}

TEST(pool_asker, what_is_not_asked_by_the_end_is_missing) {
    std::atomic<bool> go = false;
    std::atomic<int> asking = 0;
    scripted_source slow([&](const question &) {
        ++asking;
        while (!go) {
            std::this_thread::sleep_for(1ms);
        }
        return found({"A 192.0.2.1"});
    });
    heard all;
    dns_sources::pool_asker pool(slow, 2);
    ASSERT_TRUE(pool.start());
    for (int i = 0; i < 10; ++i) {
        pool.ask(ask_for("a.example."), all.listener());
    }
    while (asking < 2) {
        std::this_thread::sleep_for(1ms);
    }
    go = true;
    pool.stop();
    pool.ask(ask_for("a.example."), all.listener());
    const std::vector<answer> answers = all.wait(11);
    EXPECT_EQ(answers.size(), 11u) << "each is told once";
    EXPECT_EQ(answers.back(), answer_of_status(status_missing));
}

// --- checked_asker ---

TEST(checked_asker, may_change_each_answer) {
    scripted_asker behind;
    dns_sources::checked_asker checked(behind, [](const question &asked, answer *got) {
        if (asked.name == "bad.example.") {
            throw std::bad_alloc();
        }
        got->status = servfail;
    });
    heard all;
    checked.ask(limited("a.example.", 5ms), all.listener());
    checked.ask(ask_for("bad.example."), all.listener());
    EXPECT_EQ(behind.asked(0), limited("a.example.", 5ms));
    behind.tell(0, answer_of_status(nxdomain));
    behind.tell(1, answer_of_status(nxdomain));
    const std::vector<answer> answers = all.wait(2);
    EXPECT_EQ(answers[0].status, servfail);
    EXPECT_EQ(answers[0].said, nxdomain);
    EXPECT_EQ(answers[1], answer_of_status(8));
}

// --- memo_asker ---

class memo_asker : public ::testing::Test {
  protected:
    dns_sources::off_source nobody;
    dns_sources::memo_source memo{nobody, {.leaves_zones_alone = true}};
    scripted_asker behind;
    heard all;
};

TEST_F(memo_asker, so_many_are_on_their_way) {
    dns_sources::memo_asker asker(memo, behind, 2);
    for (int i = 0; i < 5; ++i) {
        asker.ask(ask_for(std::to_string(i) + ".example."), all.listener());
    }
    EXPECT_EQ(behind.count(), 2u);
    behind.tell(1, found({"A 192.0.2.1"}));
    EXPECT_EQ(behind.count(), 3u);
    EXPECT_EQ(behind.asked(2).name, "2.example.");
    EXPECT_EQ(all.wait(1)[0], found({"A 192.0.2.1"}));
    EXPECT_TRUE(memo.known(ask_for("1.example.")));
}

TEST_F(memo_asker, what_is_known_when_its_turn_comes_is_not_asked) {
    dns_sources::memo_asker asker(memo, behind, 1);
    asker.ask(ask_for("a.example."), all.listener());
    for (int i = 0; i < 50'000; ++i) { // told one behind the other, and not one below the other
        asker.ask(ask_for("a.example."), all.listener());
    }
    behind.tell(0, found({"A 192.0.2.1"}));
    EXPECT_EQ(all.count(), 50'001u);
    EXPECT_EQ(behind.count(), 1u);
}

TEST_F(memo_asker, who_waits_for_a_zone_that_is_left_alone_is_told_at_once) {
    dns_sources::memo_asker asker(memo, behind, 3);
    for (int i = 0; i < 100; ++i) {
        asker.ask(ask_for("1.2.0." + std::to_string(i) + ".rbl.example."), all.listener());
    }
    for (size_t i = 0; i < 3; ++i) {
        behind.tell(i, answer_of_status(timed_out));
    }
    EXPECT_LE(behind.count(), 5u) << "those that went out before the third silence";
    for (size_t i = 3; i < behind.count(); ++i) {
        behind.tell(i, answer_of_status(timed_out));
    }
    EXPECT_EQ(all.count(), 100u);
}

TEST_F(memo_asker, waiting_is_taken_from_the_limit) {
    dns_sources::memo_asker asker(memo, behind, 1);
    asker.ask(limited("a.example.", 5000ms), all.listener());
    asker.ask(limited("b.example.", 5000ms), all.listener());
    asker.ask(limited("c.example.", 5ms), all.listener());
    std::this_thread::sleep_for(20ms);
    behind.tell(0, answer_of_status(nxdomain));
    EXPECT_LE(behind.asked(0).limit, 5000ms);
    EXPECT_LE(behind.asked(1).limit, 4980ms);
    behind.tell(1, answer_of_status(nxdomain));
    EXPECT_EQ(behind.count(), 2u);
    EXPECT_EQ(all.wait(3)[2], answer_of_status(timed_out));
}

TEST_F(memo_asker, an_end_leaves_nobody_waiting) {
    {
        dns_sources::memo_asker asker(memo, behind, 2);
        for (int i = 0; i < 5; ++i) {
            asker.ask(ask_for(std::to_string(i) + ".example."), all.listener());
        }
        asker.stop();
        EXPECT_EQ(all.wait(5)[4], answer_of_status(status_missing));
        asker.ask(ask_for("a.example."), all.listener());
        EXPECT_EQ(all.count(), 6u);
    }
    behind.tell(0, found({"A 192.0.2.1"})); // nobody is there any more
    behind.tell(1, found({"A 192.0.2.1"}));
    EXPECT_EQ(all.count(), 6u);
}

// --- shared_asker ---

TEST(shared_asker, identical_questions_are_asked_once) {
    scripted_asker behind;
    heard all;
    heard others;
    dns_sources::shared_asker shared(behind);
    for (const char *const name : {"A.example.", "a.example", "a.EXAMPLE."}) {
        shared.ask(ask_for(name), all.listener());
    }
    shared.ask(ask_for("b.example."), others.listener());
    shared.ask(ask_for("a.example.", type_mx), others.listener());
    question other_way = ask_for("a.example.");
    other_way.options = platform::dns_query_tcp_only;
    shared.ask(other_way, others.listener());
    EXPECT_EQ(behind.count(), 4u);
    EXPECT_EQ(behind.asked(0), ask_for("A.example."));
    behind.tell(0, found({"A 192.0.2.1"}));
    for (const answer &got : all.wait(3)) {
        EXPECT_EQ(got, found({"A 192.0.2.1"}));
    }
    EXPECT_EQ(others.count(), 0u);
    shared.ask(ask_for("a.example."), all.listener());
    EXPECT_EQ(behind.count(), 5u) << "nothing is kept";
}

TEST(shared_asker, who_has_less_time_is_told_earlier) {
    scripted_asker behind;
    heard patient;
    heard hasty;
    dns_sources::shared_asker shared(behind);
    shared.ask(ask_for("a.example."), patient.listener());
    shared.ask(limited("a.example.", 20ms), hasty.listener());
    EXPECT_EQ(hasty.wait(1)[0], answer_of_status(timed_out));
    EXPECT_EQ(patient.count(), 0u);
    behind.tell(0, found({"A 192.0.2.1"}));
    EXPECT_EQ(patient.wait(1)[0].status, 0u);
    EXPECT_EQ(hasty.count(), 1u);
    EXPECT_EQ(behind.count(), 1u);
}

TEST(shared_asker, who_has_more_time_is_asked_for_again) {
    scripted_asker behind;
    heard hasty;
    heard patient;
    dns_sources::shared_asker shared(behind);
    shared.ask(limited("a.example.", 10ms), hasty.listener());
    shared.ask(limited("a.example.", 60'000ms), patient.listener());
    shared.ask(limited("a.example.", 30'000ms), patient.listener());
    std::this_thread::sleep_for(12ms);
    behind.tell(0, answer_of_status(timed_out));
    EXPECT_EQ(hasty.wait(1)[0].status, timed_out);
    ASSERT_EQ(behind.count(), 2u);
    EXPECT_GT(behind.asked(1).limit, 30'000ms);
    EXPECT_LE(behind.asked(1).limit, 60'000ms);
    behind.tell(1, found({"A 192.0.2.1"}));
    EXPECT_EQ(patient.wait(2)[1].status, 0u);
}

// The servers' own silence is everybody's.
TEST(shared_asker, a_silence_within_the_limit_is_for_all) {
    scripted_asker behind;
    heard all;
    dns_sources::shared_asker shared(behind);
    shared.ask(limited("a.example.", 30'000ms), all.listener());
    shared.ask(limited("a.example.", 60'000ms), all.listener());
    behind.tell(0, answer_of_status(timed_out));
    EXPECT_EQ(all.wait(2)[1].status, timed_out);
    EXPECT_EQ(behind.count(), 1u);
}

TEST(shared_asker, an_end_leaves_nobody_waiting) {
    scripted_asker behind;
    heard all;
    {
        dns_sources::shared_asker shared(behind);
        shared.ask(ask_for("a.example."), all.listener());
        shared.ask(limited("a.example.", 60'000ms), all.listener());
        shared.ask(ask_for("b.example."), all.listener());
    }
    EXPECT_EQ(all.count(), 3u);
    behind.tell(0, found({"A 192.0.2.1"}));
    EXPECT_EQ(all.wait(3)[2], answer_of_status(status_missing));
    EXPECT_EQ(all.count(), 3u);
}

// --- live_asker ---

TEST(live_asker, before_it_begins_everything_is_missing) {
    heard all;
    dns_sources::live_asker live;
    live.ask(ask_for("a.example."), all.listener());
    EXPECT_EQ(all.wait(1)[0], answer_of_status(status_missing));
}

TEST(live_asker, a_name_that_is_no_server) {
    dns_sources::live_asker live("nowhere");
    const uint32_t why = live.start();
    EXPECT_TRUE(why == 87 || why == 50) << why << " (50: Windows)";
}

// With a stand-in for the system each question has a thread, as on Windows.
TEST(live_asker, asks_the_system) {
    platform::set_dns_stand_in(
        [](const char *, uint16_t, uint32_t, platform::dns_record **) { return nxdomain; });
    heard all;
    {
        dns_sources::live_asker live;
        ASSERT_EQ(live.start(), 0u);
        for (int i = 0; i < 100; ++i) {
            live.ask(over_tcp("a.example."), all.listener());
        }
        for (const answer &got : all.wait(100)) {
            EXPECT_EQ(got.status, nxdomain);
        }
    }
    platform::set_dns_stand_in(nullptr);
}

// --- all of them ---

// A source of 50 names behind everything, asked by threads that stop in the middle.
TEST(askers, many_threads_and_an_end) {
    scripted_source by_name([](const question &asked) {
        std::this_thread::sleep_for(50us);
        return found({"PTR " + asked.name});
    });
    dns_sources::off_source nobody;
    dns_sources::memo_source memo(nobody);
    std::atomic<size_t> told = 0;
    std::atomic<size_t> wrong = 0;
    constexpr size_t each = 2000;
    {
        dns_sources::pool_asker pool(by_name, 4);
        ASSERT_TRUE(pool.start());
        dns_sources::shared_asker shared(pool);
        dns_sources::memo_asker asker(memo, shared, 100);
        std::vector<std::thread> threads;
        for (size_t t = 0; t < 3; ++t) {
            threads.emplace_back([&, t] {
                for (size_t i = 0; i < each; ++i) {
                    const std::string name = std::to_string((t + i) % 50) + ".example.";
                    asker.ask(limited(name, i % 7 == 0 ? 1ms : 10'000ms),
                              [&, want = found({"PTR " + name})](const answer &got) {
                                  ++told;
                                  wrong += got.status == 0 && got != want;
                              });
                }
            });
        }
        for (std::thread &one : threads) {
            one.join();
        }
    }
    EXPECT_EQ(told, 3 * each);
    EXPECT_EQ(wrong, 0u);
}

} // namespace
} // namespace quillfence::testing
