// Events for a log daemon: one that listens, one that was started anew, and none.
#include "platform/event_log.h"

#include <cerrno>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "drive_c.h"
#include "platform/process.h"
#include "posix/syslog_socket.h"

namespace quillfence::platform {
namespace {

constexpr uint32_t event_id = 0x40020100;

class syslog_socket : public ::testing::Test {
  protected:
    syslog_socket() {
        environment_set("QUILLFENCE_EVENT_LOG", nullptr);
        set_syslog_stand_in(path.c_str());
    }
    ~syslog_socket() override {
        stop();
        set_syslog_stand_in(nullptr);
    }
    void start(int type) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        ASSERT_LT(path.size(), sizeof address.sun_path);
        path.copy(address.sun_path, path.size());
        daemon = socket(AF_UNIX, type, 0);
        ASSERT_EQ(bind(daemon, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        if (type == SOCK_STREAM) {
            ASSERT_EQ(listen(daemon, 1), 0);
        }
    }
    void stop() {
        if (daemon >= 0) {
            close(daemon);
            unlink(path.c_str());
        }
        daemon = -1;
    }
    // What has arrived, without the time in the middle.
    static std::string received(int from) {
        char bytes[8192];
        const ssize_t size = recv(from, bytes, sizeof bytes, MSG_DONTWAIT);
        const std::string line(bytes, size > 0 ? static_cast<size_t>(size) : 0);
        const size_t time = line.find('>') + 1;
        return line.size() < 32 ? line : line.substr(0, time) + line.substr(time + 16);
    }
    static std::string wanted(int priority, const char *ident, const std::string &message) {
        return "<" + std::to_string(priority) + ">" + ident + "[" + std::to_string(process_id()) +
               "]: " + message;
    }
    // What standard error gets while one event is reported.
    std::string reported(event_type type, const std::string &message) {
        ::testing::internal::CaptureStderr();
        event_log_report(log, type, event_id, "ident", message.c_str());
        return ::testing::internal::GetCapturedStderr();
    }
    testing::drive_c drive;
    const std::string path = drive.native("c:/log");
    int daemon = -1;
    event_log *log = nullptr;
};

TEST_F(syslog_socket, a_datagram_a_line) {
    start(SOCK_DGRAM);
    log = event_log_open("Quillfence");
    EXPECT_EQ(reported(event_type::error, "100 %s"), "");
    EXPECT_EQ(reported(event_type::warning, "b"), "");
    EXPECT_EQ(reported(event_type::success, "c"), "");
    EXPECT_EQ(received(daemon), wanted(16 + 3, "ident", "100 %s"));
    EXPECT_EQ(received(daemon), wanted(16 + 4, "ident", "b"));
    EXPECT_EQ(received(daemon), wanted(16 + 6, "ident", "c"));
    event_log_close(log);
}

TEST_F(syslog_socket, a_stream_with_a_nul_behind_each_line) {
    start(SOCK_STREAM);
    log = event_log_open("Quillfence");
    EXPECT_EQ(reported(event_type::error, "a"), "");
    const int peer = accept(daemon, nullptr, nullptr);
    ASSERT_GE(peer, 0);
    EXPECT_EQ(received(peer), wanted(16 + 3, "ident", "a") + '\0');
    close(peer);
    event_log_close(log);
}

TEST_F(syslog_socket, a_daemon_that_was_started_anew) {
    start(SOCK_DGRAM);
    log = event_log_open("Quillfence");
    EXPECT_EQ(reported(event_type::error, "a"), "");
    stop();
    EXPECT_EQ(reported(event_type::error, "b"), "error ident: b\n");
    start(SOCK_DGRAM);
    EXPECT_EQ(reported(event_type::error, "c"), "");
    EXPECT_EQ(received(daemon), wanted(16 + 3, "ident", "c"));
    event_log_close(log);
}

TEST_F(syslog_socket, without_a_daemon_lines_go_to_standard_error) {
    log = event_log_open("Quillfence");
    EXPECT_EQ(reported(event_type::error, "a"), "error ident: a\n");
    EXPECT_EQ(reported(event_type::warning, "b\nc"), "warning ident: b c\n");
    event_log_close(log);
}

// Nobody stands still with a daemon that does: its lines go to standard error.
TEST_F(syslog_socket, a_daemon_that_takes_nothing) {
    for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
        start(type);
        log = event_log_open("Quillfence");
        const std::string line(4000, 'x');
        std::string lost;
        for (int i = 0; i < 10000 && lost.empty(); ++i) {
            lost = reported(event_type::warning, line);
        }
        EXPECT_EQ(lost, "warning ident: " + line + "\n");
        for (int i = 0; i < 1000; ++i) { // which would be minutes if each waited
            ASSERT_EQ(reported(event_type::error, "a"), "error ident: a\n");
        }
        const int peer = type == SOCK_STREAM ? accept(daemon, nullptr, nullptr) : dup(daemon);
        char bytes[8192];
        while (recv(peer, bytes, sizeof bytes, MSG_DONTWAIT) > 0) {
        }
        EXPECT_EQ(reported(event_type::error, "b"), "");
        EXPECT_EQ(received(peer).substr(0, 4), "<19>");
        close(peer);
        event_log_close(log);
        stop();
    }
}

TEST_F(syslog_socket, a_long_line_arrives_cut) {
    start(SOCK_DGRAM);
    log = event_log_open("Quillfence");
    EXPECT_EQ(reported(event_type::error, std::string(100000, 'x')), "");
    EXPECT_EQ(received(daemon).size(), 4095u - 16);
    event_log_close(log);
}

} // namespace
} // namespace quillfence::platform
