// A judge whose every allocation fails in turn: it answers once all the same, DUNNO if not what it
// would have said, and what it has said is in the log.
#include <algorithm>
#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "../reliability/engine_drive.h"
#include "event.h"
#include "failing_memory.h"
#include "policy_judge.h"
#include "quillfence.h"
#include "vc_w32.h"

namespace quillfence::testing {
namespace {

using namespace service;

constexpr char log_path[] = "c:/decisions";
constexpr char dunno[] = "action=DUNNO\n\n";

const std::string request_of_foe =
    "request=smtpd_access_policy\nprotocol_state=RCPT\nhelo_name=mail.good.example\n"
    "sender=a@foe.example\nrecipient=b@here.example\nclient_address=192.0.2.1\n"
    "instance=1a.2b\nsasl_username=\npolicy_context=\nanother=member\n";

// Knows no name, and answers when it is told to.
class late_asker : public dns_sources::asker {
  public:
    void ask(const dns_sources::question &, listener then) noexcept override {
        const allocation_pause pause;
        const std::lock_guard guard(lock_);
        ++asked_;
        held_.push_back(std::move(then));
    }
    void answer_all() {
        std::list<listener> all;
        {
            const std::lock_guard guard(lock_);
            all.swap(held_);
        }
        for (const listener &one : all) {
            one(dns_sources::answer_of_status(no_such_name));
        }
    }
    size_t asked() {
        const std::lock_guard guard(lock_);
        return asked_;
    }

  private:
    static constexpr uint32_t no_such_name = 9003;
    std::mutex lock_; // of what follows
    std::list<listener> held_;
    size_t asked_ = 0;
};

class without_memory : public ::testing::Test {
  protected:
    without_memory() {
        vc_set_log_function(nullptr);
        quillfence_init();
        write_configuration(drive);
        drive.write("c:/quillfence/control/bms.enabled", "none\n");
        set_event_stand_in([](event_severity, std::string_view) {});
        EXPECT_TRUE(live.load());
        EXPECT_EQ(log.open(log_path), 0u);
        options.configuration = &live;
        options.how.all = true;
        options.log = &log;
        options.metrics = &metrics;
    }
    ~without_memory() override {
        set_event_stand_in({});
        quillfence_teardown();
    }

    // Hands a request over; when it is judged on this thread the answer is in said_.
    void take_on(policy_judge &judge) {
        std::string text;
        {
            const allocation_pause pause;
            said_.clear();
            text = request_of_foe;
        }
        count_ = 0;
        judge.take_on(std::move(text), [this](std::string_view reply) {
            const allocation_pause pause;
            said_ = reply;
            ++count_;
        });
    }
    void ask_here(policy_judge &judge) {
        take_on(judge);
        judge.begin_all(true);
        while (count_ == 0) { // the judge's thread has just begun, and has taken it
            std::this_thread::yield();
        }
    }
    ptrdiff_t records() const {
        const std::string text = drive.read(log_path);
        return std::count(text.begin(), text.end(), '\n');
    }

    drive_c drive;
    live_configuration live{{}};
    decision::decision_log log;
    service_metrics metrics;
    policy_judge_options options;
    std::string said_;
    std::atomic<int> count_ = 0;
};

TEST_F(without_memory, it_answers_once_and_logs_what_it_refuses) {
    policy_judge judge(options);
    ask_here(judge);
    const std::string refusal = said_;
    ASSERT_TRUE(refusal.starts_with("action=550 5.7.1 ")) << refusal;
    unsigned passed = 0;
    const unsigned failed = sweep_allocations([&] { ask_here(judge); },
                                              [&](unsigned n) {
                                                  SCOPED_TRACE(n);
                                                  EXPECT_EQ(count_, 1);
                                                  EXPECT_TRUE(said_ == dunno || said_ == refusal)
                                                      << said_;
                                                  passed += said_ == dunno;
                                              });
    EXPECT_GT(failed, 50u);
    EXPECT_GT(passed, 20u);
    EXPECT_EQ(said_, refusal) << "when nothing fails any more";
    EXPECT_GE(records(), ptrdiff_t{failed} - passed + 2);
}

// With the DNS, whose answers come while they are waited for, and later when they are not.
TEST_F(without_memory, answers_that_are_waited_for) {
    late_asker dns;
    options.dns = &dns;
    for (const bool come_soon : {true, false}) {
        SCOPED_TRACE(come_soon);
        policy_judge judge(options);
        const std::function<bool()> waits = [&] {
            if (come_soon) {
                dns.answer_all();
            }
            return come_soon;
        };
        const auto ask = [&] {
            take_on(judge);
            judge.begin_all(true, waits);
            while (count_ == 0) {
                judge.gather([&] { dns.answer_all(); });
                judge.begin_all(true, waits);
            }
        };
        ask();
        const std::string refusal = said_;
        ASSERT_TRUE(refusal.starts_with("action=550 5.7.1 ")) << refusal;
        EXPECT_GT(dns.asked(), 0u);
        const unsigned failed = sweep_allocations(ask, [&](unsigned n) {
            SCOPED_TRACE(n);
            EXPECT_EQ(count_, 1);
            EXPECT_TRUE(said_ == dunno || said_ == refusal) << said_;
        });
        EXPECT_GT(failed, 50u);
        EXPECT_EQ(said_, refusal) << "when nothing fails any more";
        dns.answer_all();
    }
}

// From one allocation on nothing is to be had, until the request is answered.
TEST_F(without_memory, none_is_left) {
    policy_judge judge(options);
    ask_here(judge);
    const std::string refusal = said_;
    bool fired = true;
    for (unsigned n = 1; fired && n < 10000; ++n) {
        SCOPED_TRACE(n);
        {
            const failing_allocation failing(n, true);
            ask_here(judge);
            fired = failing.fired();
        }
        EXPECT_EQ(count_, 1);
        EXPECT_EQ(said_, fired ? dunno : refusal);
    }
    EXPECT_FALSE(fired);
}

} // namespace
} // namespace quillfence::testing
