// A client of the policy protocol, which waits for what it is told. Five seconds without a word are
// the end.
#pragma once

#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "platform/listening.h"
#include "platform/watcher.h"

namespace quillfence::testing {

class policy_client {
  public:
    explicit policy_client(const std::string &path) {
        EXPECT_EQ(platform::connect_local(path.c_str(), &socket_), 0u);
        platform::watcher_add(watcher_, socket_, this, true, false);
    }
    ~policy_client() {
        leave();
        platform::watcher_release(watcher_);
    }
    policy_client(const policy_client &) = delete;
    policy_client &operator=(const policy_client &) = delete;

    // How much of it there was room for.
    size_t say(std::string_view text) {
        uint32_t put = 0;
        platform::socket_send(socket_, text.data(), static_cast<uint32_t>(text.size()), &put);
        return put;
    }

    // All that is told up to so many replies; less when the connection ends before that.
    std::string hear(size_t replies) {
        std::string heard;
        while (count(heard) < replies && hear_more(&heard)) {
        }
        return heard;
    }
    std::string ask(std::string_view request) {
        say(request);
        return hear(1);
    }

    // Waits for the end. Whatever is told before that is dropped.
    bool is_ended() {
        std::string heard;
        while (hear_more(&heard)) {
        }
        return ended_;
    }
    void leave() {
        platform::socket_close(socket_);
        socket_ = platform::invalid_socket;
    }

  private:
    static size_t count(std::string_view heard) {
        size_t ends = 0;
        for (size_t at = 0; (at = heard.find("\n\n", at)) != std::string_view::npos; at += 2) {
            ++ends;
        }
        return ends;
    }
    bool hear_more(std::string *heard) {
        platform::watched_event event;
        constexpr int patience = 5000; // ms
        if (ended_ || platform::watcher_wait(watcher_, &event, 1, patience) == 0) {
            return false;
        }
        char piece[4096];
        uint32_t got = 0;
        const uint32_t error = platform::socket_receive(socket_, piece, sizeof piece, &got);
        ended_ = error ? error != platform::error_would_wait : got == 0;
        heard->append(piece, got);
        return !ended_;
    }

    platform::socket_handle socket_ = platform::invalid_socket;
    platform::watcher *const watcher_ = platform::watcher_create();
    bool ended_ = false;
};

} // namespace quillfence::testing
