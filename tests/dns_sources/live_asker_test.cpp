// Many questions on their way to a real server, on Linux. Runs under the thread sanitizer, too,
// with the other askers.
#include "live_asker.h"

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "heard.h"
#include "platform/listening.h"
#include "platform/watcher.h"

namespace quillfence::testing {
namespace {

using namespace std::chrono_literals;
using dns_sources::status_missing;

// A server that takes connections and never says anything.
class silent_server {
  public:
    silent_server() {
        EXPECT_EQ(platform::listen_loopback("127.0.0.1", 0, &listener_), 0u);
    }
    ~silent_server() {
        platform::socket_close(listener_);
    }
    std::string name() const {
        return "127.0.0.1:" + std::to_string(platform::listening_port(listener_));
    }

  private:
    platform::socket_handle listener_ = platform::invalid_socket;
};

// Nobody waits for the questions' own time.
TEST(live_asker_on_linux, an_end_ends_what_is_on_its_way) {
    const silent_server server;
    heard all;
    const auto began = std::chrono::steady_clock::now();
    {
        dns_sources::live_asker live(server.name(), 2000);
        ASSERT_EQ(live.start(), 0u);
        for (int i = 0; i < 5000; ++i) {
            live.ask(over_tcp(std::to_string(i) + ".example."), all.listener());
        }
        std::this_thread::sleep_for(100ms);
        EXPECT_EQ(all.count(), 0u);
    }
    const std::vector<answer> answers = all.wait(5000);
    EXPECT_EQ(answers.size(), 5000u) << "each is told once";
    EXPECT_EQ(answers.front(), answer_of_status(status_missing));
    EXPECT_LT(std::chrono::steady_clock::now() - began, 3s) << "as long as each would take";
}

TEST(live_asker_on_linux, limits_count_for_those_that_wait_as_well) {
    const silent_server server;
    heard all;
    dns_sources::live_asker live(server.name(), 10);
    ASSERT_EQ(live.start(), 0u);
    const auto began = std::chrono::steady_clock::now();
    for (int i = 0; i < 1000; ++i) {
        question asked = over_tcp(std::to_string(i) + ".example.");
        asked.limit = 200ms;
        live.ask(asked, all.listener());
    }
    for (const answer &got : all.wait(1000)) {
        EXPECT_EQ(got.status, timed_out);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - began, 3s);
}

// --- without a thread of its own ---

bool is_readable(intptr_t descriptor, int milliseconds) {
    platform::watcher *const watcher = platform::watcher_create();
    char tag = 0;
    EXPECT_EQ(platform::watcher_add(watcher, descriptor, &tag, true, false), 0u);
    platform::watched_event event{};
    const size_t count = platform::watcher_wait(watcher, &event, 1, milliseconds);
    platform::watcher_release(watcher);
    return count == 1;
}

TEST(live_asker_on_linux, without_a_thread_whoever_takes_is_told) {
    const silent_server server;
    heard all;
    dns_sources::live_asker live(server.name());
    ASSERT_EQ(live.start_here(), 0u);
    EXPECT_EQ(live.send(), -1) << "nothing has been asked";
    question asked = over_tcp("host.example.");
    asked.limit = 100ms;
    const std::thread::id self = std::this_thread::get_id();
    bool is_mine = false;
    live.ask(asked, [&, tell = all.listener()](const answer &got) {
        is_mine = std::this_thread::get_id() == self;
        tell(got);
    });
    const auto began = std::chrono::steady_clock::now();
    while (all.count() == 0) {
        const int wait = live.send();
        ASSERT_GE(wait, 0);
        ASSERT_LE(wait, 100);
        is_readable(live.descriptor(), wait);
        live.take();
    }
    EXPECT_TRUE(is_mine);
    EXPECT_EQ(all.wait(1).front().status, timed_out);
    EXPECT_LT(std::chrono::steady_clock::now() - began, 3s);
}

// What another thread asks makes the descriptor readable; what the thread itself asks does not,
// as it sends before it waits.
TEST(live_asker_on_linux, without_a_thread_others_wake_whoever_waits) {
    const silent_server server;
    heard all;
    dns_sources::live_asker live(server.name());
    ASSERT_EQ(live.start_here(), 0u);
    live.send();
    live.ask(over_tcp("mine.example."), all.listener());
    EXPECT_FALSE(is_readable(live.descriptor(), 0));
    EXPECT_GE(live.send(), 0);
    is_readable(live.descriptor(), 1000); // it is connected
    live.take();
    live.send();
    EXPECT_FALSE(is_readable(live.descriptor(), 0));
    std::thread([&] { live.ask(over_tcp("theirs.example."), all.listener()); }).join();
    EXPECT_TRUE(is_readable(live.descriptor(), 0));
    live.stop();
    EXPECT_EQ(all.wait(2).size(), 2u) << "missing";
}

} // namespace
} // namespace quillfence::testing
