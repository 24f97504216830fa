// Many questions on their way to a real server, on Linux. Runs under the thread sanitizer, too,
// with the other askers.
#include "live_asker.h"

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "heard.h"
#include "platform/listening.h"

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

} // namespace
} // namespace quillfence::testing
